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

class LabelDecisionEdges : public LabelDecisions {
  protected:
    /// Pops label 100 above another one, in that mode.
    void poppingHandlerIs(Mpls::TtlMode mode) {
        declaredHandlerIs(DecidedBy::label, [mode](const auto& context) {
            MplsRewriteHelper::createMplsPopRewrite(context->routingContext(), context->entry(),
                                                    context->packetHeader(), PayloadType::ipv4,
                                                    mode, false);
            return frameDealtWith;
        });
        madeUpRoute(decap, 100);
    }
};

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

TEST_F(LabelDecisionEdges, AMulticastSetOfWhichAViaIsUndecidedIsRefused) {
    ProcessingResult result = frameDealtWith;
    declaredHandlerIs(DecidedBy::label, [&result](const auto& context) {
        context->nexthops()->nexthopEnq(Tessel::make<RoutingNexthop>(Lumo::IntfId("east")));
        return result;
    });
    route(decap, {{swapVia(300), 1}}, madeUpViaType, Mpls::LfibViaSetType::multicast);
    EXPECT_TRUE(decide(100));
    result = 0;
    EXPECT_FALSE(decide(100));
}

TEST_F(LabelDecisionEdges, AReplicaEndsNoLabel) {
    route(decap, {{swapVia(300), 1}, {swapVia(301), 1}}, LfibViaType::ip,
          Mpls::LfibViaSetType::multicast);
    ASSERT_TRUE(decide(100));
    EXPECT_FALSE(decision.choices[0].terminates);
    EXPECT_FALSE(decision.choices[1].terminates);
}

TEST_F(LabelDecisionEdges, OnlyThePipeModelEndsALabel) {
    poppingHandlerIs(Mpls::TtlMode::pipe);
    ASSERT_TRUE(decide(100, Beneath::label));
    EXPECT_TRUE(choice().terminates);
    // The TTL of what is popped in the uniform model goes into the frame's next label.
    poppingHandlerIs(Mpls::TtlMode::uniform);
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

TEST_F(LabelDecisionEdges, AHandlerFindsTheLabelAloneOnItsStack) {
    const auto handler =
        declaredHandlerIs(DecidedBy::label, [](const auto&) { return frameDealtWith; });
    madeUpRoute(decap, 100);
    ASSERT_TRUE(decide(100, Beneath::label));
    const MplsContext& context = *handler->seen.back();
    ASSERT_EQ(context.viaSetStack()->size(), 1U);
    const OvixMplsHdrAndViaSet& top = context.viaSetStack()->at(context.position());
    EXPECT_EQ(top.entry, context.entry());
    EXPECT_EQ(top.viaSet, context.viaSet());
    EXPECT_EQ(context.entry().tc(), 0);
}

TEST_F(LabelDecisionEdges, AnUnknownLabelIsOneChoiceOfWeightOne) {
    ASSERT_TRUE(decide(100));
    ASSERT_EQ(decision.choices.size(), 1U);
    EXPECT_EQ(choice().weight, 1U);
}

TEST_F(LabelDecisionEdges, TheModelHasTheLabelAndTheLeastOfWhatLiesBeneath) {
    for (const auto& [beneath, bytes] :
         {std::pair(Beneath::label, 8U), std::pair(Beneath::ipv4, 24U),
          std::pair(Beneath::ipv6, 44U), std::pair(Beneath::ethernet, 18U)}) {
        ASSERT_TRUE(decide(100, beneath));
        EXPECT_EQ(decision.modelBytes, bytes);
    }
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

TEST_F(LabelDecisionEdges, OfTwoChangesAtOnceNeitherHidesTheOtherFromTheVersion) {
    bool enabled = true;
    bool up = true;
    int collections = 0;
    const std::function<void()> changes[]{
        [&] { plugin->lfibCounterCollectionIs("Other" + std::to_string(++collections)); },
        [&] { routingInfo->mplsRoutingEnabledIs(enabled = !enabled); },
        [&] { handlerAnswers({}); },
        [&] { interfaces->intfStatusIs(Lumo::IntfId("east"), up = !up); },
    };
    const MplsRoutingHandler& handler = *plugin->mplsRoutingHandler();
    for (const auto& one : changes) {
        for (const auto& other : changes) {
            const std::uint64_t before = handler.decisionVersion();
            one();
            other();
            EXPECT_NE(handler.decisionVersion(), before);
        }
    }
}

} // namespace LabelDecisionEdgesTest
