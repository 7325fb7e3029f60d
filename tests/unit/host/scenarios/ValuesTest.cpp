#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/MplsLabel.h"
#include "Lumo/Pkt.h"
#include "Ovix/trace/NamedCounters.h"
#include "Ovix/trace/Trace.h"

namespace {

using namespace Lumo;

TEST(MplsLabelEntry, ReadsTheShimWord) {
    const MplsLabelEntry entry(NetU32(0x00001140));
    EXPECT_EQ(entry.label().value(), 1U);
    EXPECT_EQ(entry.tc(), 0);
    EXPECT_TRUE(entry.bos());
    EXPECT_EQ(entry.ttl(), 64);
    EXPECT_EQ(MplsLabelEntry(MplsLabel(0xfffff), 7, false, 255).word().value(), 0xfffffeffU);
    EXPECT_THROW(MplsLabel(0x100000), Tessel::RangeError);
}

TEST(MplsStackEntryIndex, EndsAtItsNullPosition) {
    EXPECT_EQ(MplsStackEntryIndex(13).value(), 13);
    const std::string text = "Lumo::MplsStackEntryIndex::value < Lumo::MplsStackEntryIndex::min "
                             "or > Lumo::MplsStackEntryIndex::nullValue not allowed";
    for (const bool increment : {false, true}) {
        try {
            MplsStackEntryIndex index(increment ? 13 : 14);
            ++index;
            ADD_FAILURE();
        } catch (const Tessel::RangeError& refused) {
            EXPECT_EQ(refused.what(), text);
        }
    }
}

TEST(IntfId, OfTheEmptyNameIsNone) {
    EXPECT_TRUE(IntfId("").empty());
    EXPECT_FALSE(IntfId("eth1").empty());
    EXPECT_EQ(IntfId("eth1"), IntfId("eth1"));
    EXPECT_NE(IntfId("eth1"), IntfId("eth2"));
    EXPECT_THROW(IntfId(std::string(101, 'x')), Tessel::RangeError);
    EXPECT_TRUE(VlanIntfId::isVlanIntfId(VlanIntfId::vlanIdToIntfId(100)));
    EXPECT_EQ(VlanIntfId::vlanId(VlanIntfId::vlanIdToIntfId(100)), 100);
    EXPECT_FALSE(CpuIntfId::cpuIdToIntfId(0).empty());
}

TEST(IpGenPrefix, ContainsByBitsWithinAFamily) {
    const IpGenPrefix odd(IpGenAddr::fromText("10.128.0.0"), 9);
    EXPECT_TRUE(odd.contains(IpGenAddr::fromText("10.255.1.1")));
    EXPECT_FALSE(odd.contains(IpGenAddr::fromText("10.127.1.1")));
    EXPECT_FALSE(odd.contains(IpGenAddr::fromText("::1")));
    EXPECT_EQ(IpGenAddr::fromText("nonsense"), IpGenAddr());
    EXPECT_EQ(IpGenAddr::fromText("2001:db8::1").text(), "2001:db8::1");
}

TEST(Pkt, GrowsInFrontAndGoesBackToThePool) {
    auto& manager = *globalPktManager();
    for (const std::size_t size : {0U, 64U, 9000U, 65535U}) {
        const std::vector<std::uint8_t> bytes(size, 0xa5);
        for (int round = 0; round < 2; ++round) {
            const std::uint64_t before = manager.buffersFromHeap();
            const auto packet = manager.newPkt(bytes);
            EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), packet->data().begin()));
            EXPECT_EQ(packet->bytes(), size);
            if (round == 1) {
                EXPECT_EQ(manager.buffersFromHeap(), before);
            }
        }
    }
    EXPECT_THROW(manager.newPkt()->newSharedHeadData(65536), Tessel::RangeError);
    const std::vector<std::uint8_t> bytes{1, 2, 3};
    const auto packet = manager.newPkt(bytes);
    EXPECT_FALSE(packet->popFront(4));
    EXPECT_TRUE(packet->pushFront(65533).empty());
    EXPECT_EQ(packet->pushFront(2000).size(), 2000U); // beyond the headroom
    EXPECT_TRUE(packet->popFront(2000));
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), packet->data().begin()));
}

TEST(NamedCounters, CountByNameAndRememberTheLast) {
    Ovix::OvixNamedCounters counters;
    constexpr Ovix::CounterKey fixed("Drop", "m", "reason");
    counters.count(fixed);
    counters.count("Drop", "m", "reason");
    EXPECT_EQ(counters.value("Drop", "m", "reason"), 2U);
    EXPECT_EQ(counters.value("Action", "m", "reason"), 0U);
    for (int i = 0; i < 10000; ++i) {
        counters.count("Drop", "m", std::to_string(i));
    }
    EXPECT_EQ(counters.counters().size(), 10001U);
    EXPECT_EQ(counters.value("Drop", "m", "9999"), 1U);
    EXPECT_EQ(counters.last()->reason, "9999");
    counters.forgetLast();
    EXPECT_EQ(counters.last(), nullptr);
}

struct Formatted {
    int* times;
};
Ovix::TraceLine& operator<<(Ovix::TraceLine& line, const Formatted& value) {
    ++*value.times;
    return line << "formatted";
}

TEST(TraceSource, FormatsNothingUntilADestinationWantsTheLevel) {
    auto& source = Ovix::TraceSource::named("tag", "Handle");
    EXPECT_EQ(&source, &Ovix::TraceSource::named("tag", "Handle"));
    std::vector<std::string> lines;
    Ovix::TraceOutput::instance().textSinkIs(
        [&](std::string_view, unsigned, std::string_view line) { lines.emplace_back(line); });
    int times = 0;
    source.trace(0, Formatted{&times});
    EXPECT_EQ(times, 0);
    source.textLevelIs(0);
    source.trace(0, "a ", 5U, " ", Formatted{&times});
    source.trace(1, Formatted{&times});
    EXPECT_EQ(times, 1);
    EXPECT_EQ(lines, std::vector<std::string>{"a 5 formatted"});
    source.textLevelIs(Ovix::TraceSource::off);
    source.ringLevelIs(1);
    for (int i = 0; i < 2000; ++i) {
        source.trace(1, i);
    }
    std::vector<std::string> ring;
    Ovix::TraceOutput::instance().ring().visit([&](const Ovix::TraceRing::Record& record) {
        EXPECT_EQ(record.tag, "tag");
        ring.emplace_back(record.line.view());
    });
    ASSERT_EQ(ring.size(), 1024U);
    EXPECT_EQ(ring.front(), "976");
    EXPECT_EQ(ring.back(), "1999");
    source.ringLevelIs(Ovix::TraceSource::off);
    EXPECT_EQ(lines.size(), 1U);
}

} // namespace
