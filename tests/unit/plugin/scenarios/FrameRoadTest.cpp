#include "PluginFixture.h"

namespace FrameRoadTest {

namespace {

using namespace Ovix;
using TestSupport::Bytes;
using TestSupport::Entry;
using TestSupport::mplsFrame;
using TestSupport::PluginFixture;
using TestSupport::udpPacket;

const Bytes payload = udpPacket(0x0a090001);

class FrameRoad : public PluginFixture {
  protected:
    Ptr<OvixMplsViaSetStack> resolve(const std::vector<Entry>& stack) {
        const auto context = contextOf(mplsFrame(stack, payload));
        const auto header = context->packetContext()->parsedPkt().header(1);
        return plugin->resolveViaSetsForLabelStack(context,
                                                   Ptr<MplsHeaderData>(mplsHeaderData(*header)));
    }
    static Lumo::MplsStackEntryIndex at(std::uint32_t position) {
        return Lumo::MplsStackEntryIndex(position);
    }
};

TEST_F(FrameRoad, WithoutCountersTheDecisionsAreTheSame) {
    swapRoute(decap, 100, 300);
    EXPECT_EQ(routeFrame(mplsFrame({{100}}, payload), false)->nexthops()->size(), 1U);
    EXPECT_TRUE(routeFrame(mplsFrame({{4242}}, payload), false)->nexthops()->empty());
    EXPECT_TRUE(routeFrame(mplsFrame({{0}}, {}), false)->nexthops()->empty());
    EXPECT_TRUE(routeFrame(mplsFrame({{100, 1}}, payload), false)
                    ->nexthops()
                    ->nexthopFront()
                    ->isCpuTrapNexthop());
    EXPECT_TRUE(counters->counters().empty());
    EXPECT_TRUE(traced("No labels resolved to via sets, and nexthop not resolved"));
}

TEST_F(FrameRoad, RoutingOffDropsBeforeAnythingIsLookedUp) {
    routingInfo->mplsRoutingEnabledIs(false);
    EXPECT_TRUE(routeFrame(mplsFrame({{1}}, payload))->nexthops()->empty());
    EXPECT_EQ(counted("Drop", "Mpls routing not enabled"), 1U);
    EXPECT_EQ(counters->counters().size(), 1U);
}

TEST_F(FrameRoad, AHeaderOfAnotherKindHasNoLabelStack) {
    const auto context = contextOf(mplsFrame({{100}}, payload));
    const auto output = Tessel::make<RoutingOutput>();
    plugin->handleMplsFrame(output, context, context->packetContext()->parsedPkt().header(0),
                            nullptr);
    EXPECT_EQ(counted("Drop", "No mplsHeaderData"), 1U);
    EXPECT_TRUE(traced("No mplsHeaderData"));
}

TEST_F(FrameRoad, AnEmptyStackResolvesToAnEmptyOne) {
    const auto context = contextOf(mplsFrame({{100}}, payload));
    const auto none = Tessel::make<MplsHeaderData>(context->packetContext()->pkt(), 14U, 0U, false);
    EXPECT_TRUE(plugin->resolveViaSetsForLabelStack(context, none)->empty());
}

TEST_F(FrameRoad, AnEmptyStackOverAnLspPingIsOam) {
    const auto context = contextOf(mplsFrame({{0}}, udpPacket(0x7f000001, 3503)));
    const auto none = Tessel::make<MplsHeaderData>(context->packetContext()->pkt(), 14U, 0U, false);
    const auto header = context->packetContext()->parsedPkt().header(1);
    EXPECT_TRUE(plugin->checkForOam(context, header, none));
    EXPECT_FALSE(plugin->checkForOamMaybeUdpHdr(context, nullptr));
}

TEST_F(FrameRoad, TheWalkStopsAtTheFirstUnknownLabel) {
    swapRoute(decap, 100, 300);
    EXPECT_TRUE(resolve({{3}, {100}})->empty());
    EXPECT_TRUE(traced("No viaSet for label 3"));
    EXPECT_FALSE(traced("Mpls processing label 100"));
}

TEST_F(FrameRoad, ReservedLabelsAreRecordedWithoutAViaSet) {
    swapRoute(decap, 100, 300);
    const auto stack = resolve({{0}, {100}});
    ASSERT_EQ(stack->size(), 2U);
    EXPECT_FALSE(stack->at(at(0)).viaSet);
    EXPECT_TRUE(stack->at(at(1)).viaSet);
    EXPECT_EQ(stack->at(at(1)).entry.label().value(), 100U);
}

TEST_F(FrameRoad, AnEntropyLabelIsNotLookedUpEvenIfATableHoldsIt) {
    swapRoute(decap, 100, 300);
    swapRoute(decap, 12345, 301);
    const auto stack = resolve({{7}, {12345}, {100}});
    ASSERT_EQ(stack->size(), 3U);
    EXPECT_FALSE(stack->at(at(1)).viaSet);
    EXPECT_TRUE(stack->at(at(2)).viaSet);
}

TEST_F(FrameRoad, AnExplicitNullDoesNotUseUpTheIndicator) {
    swapRoute(decap, 100, 300);
    swapRoute(decap, 555, 301);
    const auto stack = resolve({{7}, {2}, {555}, {100}});
    ASSERT_EQ(stack->size(), 4U);
    EXPECT_FALSE(stack->at(at(2)).viaSet);
    EXPECT_TRUE(stack->at(at(3)).viaSet);
}

TEST_F(FrameRoad, ThirteenLabelsFitAndFourteenDoNot) {
    swapRoute(decap, 100, 300);
    EXPECT_EQ(resolve(std::vector<Entry>(13, {100}))->size(), 13U);
    EXPECT_THROW(resolve(std::vector<Entry>(14, {100})), Tessel::RangeError);
    std::vector<Entry> stopped(20, {100});
    stopped[13] = {9999};
    EXPECT_EQ(resolve(stopped)->size(), 13U);
}

TEST_F(FrameRoad, TheReasonOfASpentTtlNamesTheLabel) {
    swapRoute(decap, 100, 300);
    const auto output = routeFrame(mplsFrame({{100, 1}}, payload));
    ASSERT_EQ(output->nexthops()->size(), 1U);
    EXPECT_TRUE(output->nexthops()->nexthopFront()->isCpuTrapNexthop());
    EXPECT_EQ(counted("Exceptional", "ttl for label 100 is <= 1, trapping"), 1U);
}

TEST_F(FrameRoad, SeveralNexthopsAreExceptionalAndTheFirstIsUsed) {
    swapRoute(decap, 100, 300);
    const auto context = contextOf(mplsFrame({{100}}, payload));
    const auto header = context->packetContext()->parsedPkt().header(1);
    const auto stack =
        plugin->resolveViaSetsForLabelStack(context, Ptr<MplsHeaderData>(mplsHeaderData(*header)));
    const auto nexthops = Tessel::make<RoutingNexthops>();
    for (int i = 0; i < 3; ++i) {
        nexthops->nexthopEnq(Tessel::make<RoutingNexthop>(Lumo::IntfId()));
    }
    plugin->processViaSetStack(context, nexthops, nullptr, stack);
    EXPECT_EQ(counted("Exceptional", "Using first nexthop, but %s nexthops found"), 1U);
    EXPECT_TRUE(traced("Using first nexthop, but 3 nexthops found"));
    EXPECT_FALSE(nexthops->nexthopFront()->unresolved());
}

TEST_F(FrameRoad, AReservedLabelInTheMiddleIsPoppedAndLeavesTheAddressAlone) {
    const auto context = contextOf(mplsFrame({{0}, {100}}, payload));
    const auto nexthop = Tessel::make<RoutingNexthop>(Lumo::IntfId());
    plugin->handleReservedLabel(context, nexthop, nullptr,
                                Lumo::MplsLabelEntry(Lumo::MplsLabel(0), 0, false, 64));
    EXPECT_TRUE(nexthop->unresolved());
    EXPECT_EQ(nexthop->rewriteInfos().rewrites().size(), 1U);
}

TEST_F(FrameRoad, ABottomNullPointsAtTheDestinationOfThePayload) {
    const auto output = routeFrame(mplsFrame({{0}}, udpPacket(0xc0000201)));
    ASSERT_EQ(output->nexthops()->size(), 1U);
    EXPECT_EQ(output->nexthops()->nexthopFront()->address().text(), "192.0.2.1");
    EXPECT_TRUE(output->nexthops()->nexthopFront()->vrfName().empty());
}

TEST_F(FrameRoad, OamUnderAnEntropyLabelResetsTheVrf) {
    const auto output = routeFrame(mplsFrame({{7}, {5000, 0}}, udpPacket(0x7f000001, 3503)));
    ASSERT_EQ(output->nexthops()->size(), 1U);
    EXPECT_TRUE(output->nexthops()->nexthopFront()->isCpuTrapNexthop());
    EXPECT_EQ(output->nexthops()->nexthopFront()->vrfName().view(), "default");
    EXPECT_EQ(counted("Action", "MPLS Oam packet, reset vrf to default"), 1U);
}

TEST_F(FrameRoad, AnEntropyLabelPartedFromItsIndicatorDoesNoHarm) {
    swapRoute(decap, 100, 300);
    EXPECT_EQ(routeFrame(mplsFrame({{7}, {2}, {555}, {100}}, payload))->nexthops()->size(), 1U);
}

} // namespace

} // namespace FrameRoadTest
