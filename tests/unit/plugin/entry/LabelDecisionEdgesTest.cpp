// What of a label's decision is easily lost: replicas that are missing, weights, the model's
// number.

#include "LabelDecisionsTesting.h"
#include "Ovix/rewrite/MplsRewriteHelper.h"

namespace LabelDecisionEdgesTest {

using namespace LabelDecisionsTesting;

/// A handler that keeps the index of each via that it was asked about.
class AskedHandler : public ScriptedHandler {
  public:
    AskedHandler() : ScriptedHandler([](const auto&) { return frameDealtWith; }) {}
    DecidedBy decidedBy(const MplsContext& context) const override {
        asked.push_back(context.viaIndex());
        return DecidedBy::label;
    }
    mutable std::vector<std::optional<std::uint32_t>> asked;
};

using LabelDecisionEdges = LabelDecisions;

TEST_F(LabelDecisionEdges, AReplicaHasNoWeightOfItsVia) {
    route(decap, {{swapVia(300), 3}, {swapVia(301), 2}}, LfibViaType::ip,
          Mpls::LfibViaSetType::multicast);
    ASSERT_TRUE(decide(100));
    ASSERT_EQ(decision.choices.size(), 2U);
    EXPECT_EQ(decision.choices[0].weight, 1U);
    EXPECT_EQ(decision.choices[1].weight, 1U);
}

TEST_F(LabelDecisionEdges, AMulticastSetThatLeavesNoReplicaIsRefused) {
    route(decap, {{popOf(PayloadType::automatic), 1}}, LfibViaType::ip,
          Mpls::LfibViaSetType::multicast);
    EXPECT_FALSE(decide(100, Beneath::ethernet));
    EXPECT_TRUE(decide(100, Beneath::ipv4));
}

TEST_F(LabelDecisionEdges, AMulticastSetThatAlsoEndsTheLabelIsRefused) {
    declaredHandlerIs(DecidedBy::label, [](const auto& context) {
        context->nexthops()->nexthopEnq(Tessel::make<RoutingNexthop>(Lumo::IntfId("east")));
        MplsRewriteHelper::createMplsPopRewrite(context->routingContext(), context->entry(),
                                                context->packetHeader(), PayloadType::ipv4,
                                                Mpls::TtlMode::pipe, false);
        return frameDealtWith;
    });
    route(decap, {{swapVia(300), 1}}, madeUpViaType, Mpls::LfibViaSetType::multicast);
    EXPECT_FALSE(decide(100, Beneath::label));
}

TEST_F(LabelDecisionEdges, EachViaIsAskedAboutByItsIndex) {
    const auto handler = Tessel::make<AskedHandler>();
    plugin->mplsViaTypeHandlerRegistry()->doRegisterMplsViaTypeHandler(handler);
    route(decap, {{swapVia(300), 1}, {swapVia(301), 1}}, madeUpViaType);
    ASSERT_TRUE(decide(100));
    const std::vector<std::optional<std::uint32_t>> allThenEach{0, 1, 0, 1};
    EXPECT_EQ(handler->asked, allThenEach);
}

TEST_F(LabelDecisionEdges, TheModelHasTheNumberOfNoPacket) {
    ASSERT_TRUE(decide(100));
    EXPECT_EQ(trace.back(), "Pkt 0: No labels resolved to via sets, and nexthop not resolved");
}

TEST_F(LabelDecisionEdges, TheVersionIsKnownWithoutInterfaceStatus) {
    const MplsRoutingHandler& handler = *plugin->mplsRoutingHandler();
    plugin->hwStatusViaHelperIs(nullptr, nullptr);
    const std::uint64_t without = handler.decisionVersion();
    plugin->hwStatusViaHelperDel();
    EXPECT_NE(handler.decisionVersion(), without);
}

} // namespace LabelDecisionEdgesTest
