#include <ostream>

#include "FrameBytes.h"
#include "MadeUpVias.h"
#include "Ovix/rewrite/MplsRewrites.h"

namespace WholeFrameTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

using Texts = std::vector<std::string>;

const Bytes toHost = udpPacket(0xc0000201);
const Bytes toIpv6Host = Raw::ipv6({.destination = 9}, Raw::udp());
const Bytes lspPing = udpPacket(0x7f000001, 3503);
const Bytes ethernet = Raw::join({Raw::eth(Raw::ethIpv4), toHost});

const std::string notIp = "Next header is not v4 or v6";

Texts joined(std::initializer_list<Texts> parts) {
    Texts all;
    for (const Texts& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

Texts walked(const std::vector<std::uint32_t>& labels) {
    Texts lines;
    for (const std::uint32_t label : labels) {
        lines.push_back("Mpls processing label " + std::to_string(label));
    }
    return lines;
}

Texts processed(const std::vector<std::uint32_t>& labels) {
    Texts lines;
    for (const std::uint32_t label : labels) {
        lines.push_back("Processing viaSet for label " + std::to_string(label));
    }
    return lines;
}

const Texts viaLine = {"ViaSet type: unicast, via count: 1"};

struct FrameCase {
    const char* name;
    std::vector<TestSupport::Entry> stack;
    Bytes payload;
    Texts trace;
    Texts counted;   ///< category and reason, in order of first count, each counted once
    std::string end; ///< "drop", "cpu", or where the next hop points
    std::size_t pops;
};

void PrintTo(const FrameCase& one, std::ostream* out) {
    *out << one.name;
}

/// Frames from the door to the output: everything traced, everything counted, and the decision.
/// The label 100 has a via that settles the frame, 101 one that passes it on.
class WholeFrame : public MadeUpViasFixture, public ::testing::WithParamInterface<FrameCase> {
  protected:
    void SetUp() override {
        MadeUpViasFixture::SetUp();
        madeUpRoute(decap, 100);
        madeUpRoute(decap, 101);
        handlerIs([](const Ptr<MplsContext>& context) {
            const bool settles = context->entry().label().value() == 100;
            if (settles) {
                context->nexthops()->nexthopFront()->intfIdIs(Lumo::IntfId("east"));
            }
            return ProcessingResult{settles};
        });
    }
    static std::string endOf(const RoutingOutput& output) {
        if (output.nexthops()->empty()) {
            return "drop";
        }
        EXPECT_EQ(output.nexthops()->size(), 1U);
        const RoutingNexthop& nexthop = *output.nexthops()->nexthopFront();
        if (nexthop.isCpuTrapNexthop()) {
            return "cpu";
        }
        return nexthop.intfId().empty() ? nexthop.address().text() : "east";
    }
};

TEST_P(WholeFrame, IsTracedCountedAndDecided) {
    const FrameCase& one = GetParam();
    const auto output = routeFrame(mplsFrame(one.stack, one.payload));
    EXPECT_EQ(trace, lines(one.trace));
    Texts counted;
    for (const auto& counter : counters->counters()) {
        EXPECT_EQ(counter.module, "Routing::Mpls");
        EXPECT_EQ(counter.count, 1U);
        counted.push_back(counter.category + ": " + counter.reason);
    }
    EXPECT_EQ(counted, one.counted);
    EXPECT_EQ(endOf(*output), one.end);
    if (one.end != "drop") {
        const auto& infos = output->nexthops()->nexthopFront()->rewriteInfos();
        EXPECT_EQ(infos.rewrites().size(), one.pops);
        EXPECT_TRUE(infos.finalCounterActions().empty());
    }
}

TEST_P(WholeFrame, IsDecidedTheSameWithoutCounters) {
    const FrameCase& one = GetParam();
    const auto output = routeFrame(mplsFrame(one.stack, one.payload), false);
    EXPECT_EQ(trace, lines(one.trace));
    EXPECT_EQ(endOf(*output), one.end);
    EXPECT_TRUE(counters->counters().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Forwarded, WholeFrame,
    ::testing::ValuesIn(std::vector<FrameCase>{
        {"ByItsTopLabel",
         {{100}, {100}},
         toHost,
         joined({walked({100, 100}), processed({100}), viaLine}),
         {},
         "east",
         0},
        {"ByTheSecondLabel",
         {{101}, {100}},
         toHost,
         joined({walked({101, 100}), processed({101}), viaLine, processed({100}), viaLine}),
         {},
         "east",
         0},
        {"UnderNullAndEntropyLabels",
         {{0}, {7, 0}, {5000, 1}, {2}, {100}},
         toHost,
         joined({walked({0, 7, 5000, 2, 100}), processed({0, 7, 5000, 2, 100}), viaLine}),
         {},
         "east",
         4},
        {"ByThePayloadUnderAnIpv6Null",
         {{2, 2}},
         toHost,
         joined({walked({2}), processed({2})}),
         {},
         "192.0.2.1",
         1},
        {"ByThePayloadUnderAnEntropyLabel",
         {{7, 0}, {5000, 0}},
         toIpv6Host,
         joined({walked({7, 5000}), processed({7, 5000})}),
         {},
         "2001:db8::9",
         2},
        {"ByThePayloadUnderAnIndicatorAtTheBottom",
         {{7, 0}},
         toHost,
         joined({walked({7}), processed({7})}),
         {},
         "192.0.2.1",
         1},
        {"ByThePayloadUnderAPassedOnLabel",
         {{101}, {0}},
         toHost,
         joined({walked({101, 0}), processed({101}), viaLine, processed({0})}),
         {},
         "192.0.2.1",
         1},
    }),
    [](const auto& one) { return one.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Punted, WholeFrame,
    ::testing::ValuesIn(std::vector<FrameCase>{
        {"RouterAlertOverKnownLabels",
         {{1}, {100}},
         toHost,
         {"MPLS Oam packet"},
         {"Action: MPLS Oam packet"},
         "cpu",
         0},
        {"SpentTtlOnTop",
         {{100, 1}, {100}},
         toHost,
         joined({walked({100, 100}), processed({100}), {"ttl for label 100 is <= 1, trapping"}}),
         {"Exceptional: ttl for label 100 is <= 1, trapping"},
         "cpu",
         0},
        {"SpentTtlOfANullUnderAPop",
         {{2}, {0, 0}, {100}},
         toHost,
         joined({walked({2, 0, 100}), processed({2, 0}), {"ttl for label 0 is <= 1, trapping"}}),
         {"Exceptional: ttl for label 0 is <= 1, trapping"},
         "cpu",
         1},
        {"SpentTtlOfTheLastLabelValue",
         {{0}, {101}, {100, 1}},
         toHost,
         joined({walked({0, 101, 100}),
                 processed({0, 101}),
                 viaLine,
                 processed({100}),
                 {"ttl for label 100 is <= 1, trapping"}}),
         {"Exceptional: ttl for label 100 is <= 1, trapping"},
         "cpu",
         1},
        {"LspPingUnderAPassedOnLabelAndANull",
         {{101}, {0}},
         lspPing,
         joined({walked({101, 0}),
                 processed({101}),
                 viaLine,
                 processed({0}),
                 {"MPLS Oam packet, reset vrf to default"}}),
         {"Action: MPLS Oam packet, reset vrf to default"},
         "cpu",
         1},
    }),
    [](const auto& one) { return one.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Dropped, WholeFrame,
    ::testing::ValuesIn(std::vector<FrameCase>{
        {"NothingUnderTheNull",
         {{0}},
         {},
         joined({walked({0}), processed({0}), {"No inner header for reserved label bos"}}),
         {"Drop: No inner header for reserved label bos"},
         "drop",
         0},
        {"NothingUnderTheEntropyLabel",
         {{7, 0}, {5000, 0}},
         {},
         joined(
             {walked({7, 5000}), processed({7, 5000}), {"No inner header for reserved label bos"}}),
         {"Drop: No inner header for reserved label bos"},
         "drop",
         0},
        {"EthernetUnderTheNull",
         {{2}},
         ethernet,
         joined({{notIp},
                 walked({2}),
                 processed({2}),
                 {notIp, "Unknown inner header type for reserved label bos: Eth"}}),
         {"Drop: Unknown inner header type for reserved label bos: Eth"},
         "drop",
         0},
        {"PassedOnByItsLastLabel",
         {{101}},
         toHost,
         joined({walked({101}), processed({101}), viaLine}),
         {},
         "drop",
         0},
    }),
    [](const auto& one) { return one.param.name; });

} // namespace

} // namespace WholeFrameTest
