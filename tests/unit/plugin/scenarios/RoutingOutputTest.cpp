#include "FrameBytes.h"
#include "MadeUpVias.h"

namespace RoutingOutputTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

const Bytes payload = udpPacket(0x0a090001);
const Bytes lspPing = udpPacket(0x7f000001, 3503);

/// The output as the agent gives it: another protocol may have left next hops in it already.
class RoutingOutputOfAFrame : public MadeUpViasFixture {
  protected:
    void process(const Bytes& frame, std::int32_t mplsPosition = 1) {
        const auto context = contextOf(frame);
        plugin->mplsRoutingHandler()->processPacket(
            output, context, context->packetContext()->parsedPkt().header(mplsPosition),
            Tessel::make<RoutingVrfRoot>());
    }
    std::vector<const RoutingNexthop*> nexthops() const {
        std::vector<const RoutingNexthop*> all;
        for (const auto& nexthop : *output->nexthops()) {
            all.push_back(nexthop.get());
        }
        return all;
    }
    Ptr<RoutingNexthop> earlierNexthop() {
        auto nexthop = Tessel::make<RoutingNexthop>(Lumo::IntfId("west"));
        output->nexthops()->nexthopEnq(nexthop);
        return nexthop;
    }

    Ptr<RoutingOutput> output = Tessel::make<RoutingOutput>();
};

TEST_F(RoutingOutputOfAFrame, DropsLeaveItAsItWas) {
    const auto earlier = earlierNexthop();
    process(mplsFrame({{4242}}, payload));
    process(mplsFrame({{100}}, payload), 0);
    process(mplsFrame({{0}}, {}));
    routingInfo->mplsRoutingEnabledIs(false);
    process(mplsFrame({{1}}, payload));
    EXPECT_EQ(nexthops(), std::vector<const RoutingNexthop*>{earlier.get()});
}

TEST_F(RoutingOutputOfAFrame, PuntsAreAppended) {
    const auto earlier = earlierNexthop();
    process(mplsFrame({{1}}, payload));
    ASSERT_EQ(nexthops().size(), 2U);
    EXPECT_EQ(nexthops()[0], earlier.get());
    EXPECT_FALSE(earlier->isCpuTrapNexthop());
    EXPECT_TRUE(nexthops()[1]->isCpuTrapNexthop());
}

TEST_F(RoutingOutputOfAFrame, TheVeryNexthopsThatViasLeftAreAppended) {
    madeUpRoute(decap, 100);
    std::vector<const RoutingNexthop*> left;
    handlerIs([&](const Ptr<MplsContext>& context) {
        EXPECT_NE(context->nexthops().get(), output->nexthops().get());
        context->nexthops()->nexthopFront()->intfIdIs(Lumo::IntfId("east"));
        context->nexthops()->nexthopEnq(Tessel::make<RoutingNexthop>(Lumo::IntfId("west")));
        for (const auto& nexthop : *context->nexthops()) {
            left.push_back(nexthop.get());
        }
        return ProcessingResult{1};
    });
    const auto earlier = earlierNexthop();
    process(mplsFrame({{100}}, payload));
    EXPECT_EQ(nexthops(), (std::vector<const RoutingNexthop*>{earlier.get(), left[0], left[1]}));
}

TEST_F(RoutingOutputOfAFrame, TheHeadersBehindVlanTagsCountFromTheStack) {
    madeUpRoute(decap, 100);
    for (const auto& tags : {Raw::tag(5, Raw::ethMpls),
                             Raw::join({Raw::tag(5, Raw::ethVlan), Raw::tag(6, Raw::ethVlan),
                                        Raw::tag(7, Raw::ethMpls)})}) {
        const auto tagged = [&](const std::vector<Raw::Entry>& stack, const Bytes& inner) {
            return Raw::join({Raw::eth(Raw::ethVlan), tags, Raw::stack(stack), inner});
        };
        const auto handler = handlerAnswers({1});
        process(tagged({{100}}, payload), 2);
        ASSERT_EQ(handler->seen.size(), 1U);
        ASSERT_TRUE(handler->seen[0]->packetHeader());
        EXPECT_EQ(handler->seen[0]->packetHeader()->position(), 3);
        EXPECT_EQ(handler->seen[0]->packetHeader()->pktHdrType(), PktHdrType::ipv4);

        output = Tessel::make<RoutingOutput>();
        counters = Tessel::make<OvixNamedCounters>();
        process(tagged({{0}}, lspPing), 2);
        process(tagged({{7}, {5000}}, lspPing), 2);
        EXPECT_EQ(everythingCounted(),
                  (std::vector{row("Action", "MPLS Oam packet"),
                               row("Action", "MPLS Oam packet, reset vrf to default")}));
    }
}

TEST_F(RoutingOutputOfAFrame, LookingForOamCompletesTheParseOfThePayload) {
    for (const auto& [stackAbove, complete] :
         {std::pair{std::vector<TestSupport::Entry>{{0}}, true},
          std::pair{std::vector<TestSupport::Entry>{{100}}, false}}) {
        const auto context = contextOf(mplsFrame(stackAbove, payload));
        ParsedPacket& parsed = context->packetContext()->parsedPkt();
        const auto header = parsed.header(1);
        EXPECT_FALSE(
            plugin->checkForOam(context, header, Ptr<MplsHeaderData>(mplsHeaderData(*header))));
        EXPECT_EQ(parsed.complete(), complete);
    }
}

/// What stood when the last line about a frame was written: events are counted, then traced, and
/// only then does the frame's decision follow.
class OrderOfEffects : public RoutingOutputOfAFrame {
  protected:
    struct Seen {
        std::string line;
        std::uint64_t counted;
        std::size_t nexthops;
    };
    Seen lastLineOf(const Bytes& frame, std::int32_t mplsPosition = 1) {
        Seen seen{};
        counters = Tessel::make<OvixNamedCounters>();
        output = Tessel::make<RoutingOutput>();
        TraceOutput::instance().textSinkIs(
            [&](std::string_view, unsigned level, std::string_view line) {
                EXPECT_EQ(level, 0U);
                seen.line = line;
                seen.counted = counters->last() == nullptr ? 0 : counters->last()->count;
                seen.nexthops = output->nexthops()->size();
            });
        process(frame, mplsPosition);
        return seen;
    }
    void expectLast(const char* message, const Seen& seen) {
        EXPECT_EQ(seen.line, std::string("Pkt 7: ") + message);
        EXPECT_EQ(seen.counted, 1U) << message;
        EXPECT_EQ(seen.nexthops, 0U) << message;
    }
};

TEST_F(OrderOfEffects, CountedThenTracedThenDecided) {
    expectLast("No mplsHeaderData", lastLineOf(mplsFrame({{100}}, payload), 0));
    expectLast("MPLS Oam packet", lastLineOf(mplsFrame({{1}}, payload)));
    EXPECT_EQ(output->nexthops()->size(), 1U);
    expectLast("No labels resolved to via sets, and nexthop not resolved",
               lastLineOf(mplsFrame({{4242}}, payload)));
    expectLast("ttl for label 0 is <= 1, trapping", lastLineOf(mplsFrame({{0, 1}}, payload)));
    EXPECT_EQ(output->nexthops()->size(), 1U);
    expectLast("No inner header for reserved label bos", lastLineOf(mplsFrame({{2}}, {})));
    expectLast("Unknown inner header type for reserved label bos: Eth",
               lastLineOf(mplsFrame({{2}}, Raw::eth(Raw::ethIpv4))));
    expectLast("MPLS Oam packet, reset vrf to default",
               lastLineOf(mplsFrame({{7}, {5000}}, lspPing)));
    EXPECT_EQ(output->nexthops()->size(), 1U);
    routingInfo->mplsRoutingEnabledIs(false);
    expectLast("Mpls routing not enabled", lastLineOf(mplsFrame({{100}}, payload)));
}

TEST_F(OrderOfEffects, AWorkingNexthopIsTrappedOnlyAfterTheTrace) {
    bool trappedEarly = false;
    const auto nexthop = Tessel::make<RoutingNexthop>(Lumo::IntfId());
    TraceOutput::instance().textSinkIs([&](std::string_view, unsigned, std::string_view) {
        trappedEarly = trappedEarly || nexthop->isCpuTrapNexthop() || !nexthop->vrfName().empty() ||
                       !nexthop->rewriteInfos().rewrites().empty();
    });
    const auto context = contextOf(mplsFrame({{7}, {5000}}, lspPing));
    plugin->handleReservedLabel(context, nexthop, context->packetContext()->parsedPkt().header(2),
                                entryOf(5000, 64, true));
    EXPECT_TRUE(nexthop->isCpuTrapNexthop());
    EXPECT_FALSE(trappedEarly);
}

} // namespace

} // namespace RoutingOutputTest
