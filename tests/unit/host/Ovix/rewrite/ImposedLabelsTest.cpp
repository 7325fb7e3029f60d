#include "Ovix/rewrite/ImposedLabels.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>

#include "RewriteTesting.h"

namespace ImposedLabelsTest {

using namespace Ovix;
using namespace TestSupport;

TEST(ImposedLabels, OutliveTheOperationTheyWereReadFrom) {
    for (const std::size_t depth : {0U, 1U, 7U, 33U}) {
        std::vector<std::uint32_t> labels;
        for (std::size_t i = 0; i < depth; ++i) {
            labels.push_back(static_cast<std::uint32_t>(0x10203 + i));
        }
        auto source = std::make_unique<Operation>(labels, 5, 33);
        const ImposedLabels imposed(source->get());
        source.reset();
        const ImposedLabels copy = imposed;
        for (const ImposedLabels* held : {&imposed, &copy}) {
            const auto operation = held->operation();
            ASSERT_EQ(operation.depth(), depth);
            for (std::size_t i = 0; i < depth; ++i) {
                EXPECT_EQ(operation.label(i).value(), labels[i]);
            }
            EXPECT_EQ(operation.tc, 5);
            EXPECT_EQ(operation.ttl, 33);
        }
    }
}

TEST(ImposedLabels, RefuseMoreLabelsThanAViaHolds) {
    const Operation deep(std::vector<std::uint32_t>(34, 100));
    EXPECT_THROW(ImposedLabels(deep.get()), Tessel::RangeError);
}

TEST(ImposedLabels, KeepWhatIsUnset) {
    const auto operation = ImposedLabels(Operation({100}).get()).operation();
    EXPECT_FALSE(operation.tc.has_value());
    EXPECT_EQ(operation.ttl, 255);
}

namespace {

/// The labels pushed onto an IP packet of that flow, whose `operation` adds what it says.
std::vector<Lumo::MplsLabelEntry> pushedOnto(const Raw::Bytes& packet, Operation labels,
                                             std::uint8_t entropyBeneath, bool flowLabel) {
    Lumo::UnboundedMplsLabelOperation operation = labels.get();
    operation.entropyBeneath = entropyBeneath;
    operation.flowLabel = flowLabel;
    Rewritten rewritten(packet, PktHdrType::ipv4);
    EXPECT_TRUE(ImposedLabels(operation).push(rewritten.context(), 5, 64, false));
    std::vector<Lumo::MplsLabelEntry> entries;
    const Ptr<PacketHeader> header = rewritten.context().parsedPkt().header(0);
    for (const Lumo::MplsLabelEntry entry : *mplsHeaderData(*header)) {
        entries.push_back(entry);
    }
    EXPECT_EQ(header->payload().size(), packet.size());
    return entries;
}

Raw::Bytes flow(std::uint16_t port) {
    return Raw::ipv4({}, Raw::udp(port));
}

std::vector<std::uint32_t> valuesOf(const std::vector<Lumo::MplsLabelEntry>& entries) {
    std::vector<std::uint32_t> values;
    for (const Lumo::MplsLabelEntry entry : entries) {
        values.push_back(entry.label().value());
    }
    return values;
}

} // namespace

TEST(ImposedLabels, AnEntropyLabelGoesBeneathTheTunnelsLabels) {
    const auto entries = pushedOnto(flow(1), {{100, 101, 500}}, 2, false);
    ASSERT_EQ(entries.size(), 5U);
    const std::uint32_t entropy = entries[3].label().value();
    EXPECT_EQ(valuesOf(entries), (std::vector<std::uint32_t>{100, 101, 7, entropy, 500}));
    EXPECT_EQ(entries[2], Lumo::MplsLabelEntry(Lumo::entropyLabelIndicator, 5, false, 64));
    EXPECT_EQ(entries[3], Lumo::MplsLabelEntry(Lumo::MplsLabel(entropy), 5, false, 0));
    EXPECT_EQ(entries[4], Lumo::MplsLabelEntry(Lumo::MplsLabel(500), 5, true, 64));
}

TEST(ImposedLabels, AnEntropyLabelMayBeTheBottom) {
    const auto entries = pushedOnto(flow(1), {{100}}, 1, false);
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_FALSE(entries[0].bos() || entries[1].bos());
    EXPECT_TRUE(entries[2].bos());
}

TEST(ImposedLabels, AFlowLabelIsTheBottomAndHasNoTrafficClass) {
    const auto entries = pushedOnto(flow(1), {{100, 500}}, 1, true);
    ASSERT_EQ(entries.size(), 5U);
    EXPECT_EQ(entries[4], Lumo::MplsLabelEntry(entries[2].label(), 0, true, 1));
    EXPECT_FALSE(entries[3].bos());
}

TEST(ImposedLabels, TheLabelOfAFlowIsNeverASpecialPurposeOne) {
    std::set<std::uint32_t> seen;
    for (std::uint16_t port = 0; port < 2000; ++port) {
        const auto entries = pushedOnto(flow(port), {{100}}, 1, false);
        const std::uint32_t value = entries[2].label().value();
        EXPECT_GE(value, 16U);
        EXPECT_EQ(pushedOnto(flow(port), {{200}}, 0, true)[1].label().value(), value);
        seen.insert(value);
    }
    EXPECT_GT(seen.size(), 1950U);
}

} // namespace ImposedLabelsTest
