#include "MadeUpVias.h"
#include "Ovix/rewrite/MplsRewrites.h"

namespace {

using namespace Ovix;
using namespace TestSupport;

struct Position {
    std::uint32_t label;
    std::uint8_t ttl = 64;
};

class ViaSetStackProcessing : public MadeUpViasFixture {
  protected:
    /// Walks a stack; labels that are looked up have a made-up via set.
    void process(const std::vector<Position>& positions, bool counting = true) {
        stack = Tessel::make<OvixMplsViaSetStack>();
        bool entropy = false;
        for (std::uint32_t i = 0; i < positions.size(); ++i) {
            const std::uint32_t label = positions[i].label;
            const bool popped = label == 0 || label == 2 || label == 7 || entropy;
            entropy = label == 7 || (entropy && (label == 0 || label == 2));
            stack->addViaSetForLabel(Lumo::MplsStackEntryIndex(i), entryOf(label, positions[i].ttl),
                                     popped ? nullptr : Tessel::make<MadeUpViaSet>());
        }
        context = contextOf(mplsFrame({{100}}, udpPacket(0x0a090001)), counting);
        inner = context->packetContext()->parsedPkt().header(2);
        trace.clear();
        plugin->processViaSetStack(context, nexthops, inner, stack);
    }
    std::size_t pops() const { return nexthops->nexthopFront()->rewriteInfos().rewrites().size(); }
    bool trapped() const { return nexthops->nexthopFront()->isCpuTrapNexthop(); }
    static std::vector<std::uint32_t> labelsOf(const ScriptedHandler& handler) {
        std::vector<std::uint32_t> labels;
        for (const auto& one : handler.seen) {
            labels.push_back(one->entry().label().value());
        }
        return labels;
    }

    Ptr<RoutingNexthops> nexthops = oneNexthop();
    Ptr<OvixMplsViaSetStack> stack;
    Ptr<RoutingContext> context;
    Ptr<PacketHeader> inner;
};

TEST_F(ViaSetStackProcessing, AnEmptyStackChangesNothing) {
    process({});
    EXPECT_TRUE(nexthops->nexthopFront()->unresolved());
    EXPECT_TRUE(trace.empty());
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(ViaSetStackProcessing, ASpentTtlTrapsTheFrameBeforeItsViaIsHandled) {
    for (const std::uint8_t ttl : {std::uint8_t{0}, std::uint8_t{1}}) {
        nexthops = oneNexthop();
        counters = Tessel::make<OvixNamedCounters>();
        const auto handler = handlerAnswers({1, 1});
        process({{100, ttl}, {200}});
        EXPECT_TRUE(trapped());
        EXPECT_EQ(nexthops->size(), 1U);
        EXPECT_TRUE(handler->seen.empty());
        EXPECT_EQ(everythingCounted(),
                  (std::vector{row("Exceptional", "ttl for label 100 is <= 1, trapping")}));
        EXPECT_EQ(trace, lines({"Processing viaSet for label 100",
                                "ttl for label 100 is <= 1, trapping"}));
    }
}

TEST_F(ViaSetStackProcessing, ATtlOf2IsNotSpent) {
    const auto handler = handlerAnswers({1});
    process({{100, 2}});
    EXPECT_FALSE(trapped());
    EXPECT_EQ(handler->seen.size(), 1U);
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(ViaSetStackProcessing, ASpentTtlWithoutCountersTrapsJustTheSame) {
    process({{100, 1}}, false);
    EXPECT_TRUE(trapped());
    EXPECT_TRUE(traced("ttl for label 100 is <= 1, trapping"));
}

TEST_F(ViaSetStackProcessing, AnExplicitNullWithASpentTtlIsTrappedAndNotPopped) {
    for (const std::uint32_t label : {0U, 2U}) {
        for (const std::uint8_t ttl : {std::uint8_t{0}, std::uint8_t{1}}) {
            nexthops = oneNexthop();
            process({{label, ttl}, {100}});
            EXPECT_TRUE(trapped());
            EXPECT_EQ(pops(), 0U);
            EXPECT_EQ(counted("Exceptional",
                              "ttl for label " + std::to_string(label) + " is <= 1, trapping"),
                      ttl + 1U);
        }
    }
}

TEST_F(ViaSetStackProcessing, AnEntropyLabelAndItsIndicatorHaveNoTtl) {
    const auto handler = handlerAnswers({1});
    process({{7, 0}, {5000, 0}, {100, 64}});
    EXPECT_FALSE(trapped());
    EXPECT_EQ(pops(), 2U);
    EXPECT_EQ(labelsOf(*handler), std::vector<std::uint32_t>{100});
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(ViaSetStackProcessing, TheLabelBehindAnEntropyLabelHasATtl) {
    handlerAnswers({1});
    process({{7, 0}, {5000, 0}, {100, 1}});
    EXPECT_TRUE(trapped());
    EXPECT_EQ(pops(), 2U);
    EXPECT_EQ(counted("Exceptional", "ttl for label 100 is <= 1, trapping"), 1U);
}

TEST_F(ViaSetStackProcessing, AnIndicatorIsPoppedEvenWhereAnEntropyLabelIsExpected) {
    handlerAnswers({1});
    process({{7, 0}, {7, 0}, {5000, 0}, {100}});
    EXPECT_FALSE(trapped());
    EXPECT_EQ(pops(), 3U);
}

TEST_F(ViaSetStackProcessing, EveryUnsettledPositionIsVisitedOnceInOrder) {
    const auto handler = handlerAnswers({0, 0, 0});
    process({{100}, {0}, {101}, {102}});
    EXPECT_EQ(labelsOf(*handler), (std::vector<std::uint32_t>{100, 101, 102}));
    EXPECT_EQ(pops(), 1U);
    EXPECT_EQ(timesTraced("Processing viaSet for label 0"), 1U);
    EXPECT_EQ(timesTraced("Processing viaSet for label 102"), 1U);
}

TEST_F(ViaSetStackProcessing, ASettledFrameIsNotLookedAtFurther) {
    for (const ProcessingResult result : {ProcessingResult{1}, ProcessingResult{2}}) {
        nexthops = oneNexthop();
        const auto handler = handlerAnswers({0, result, 0});
        process({{100}, {101}, {102, 1}});
        EXPECT_EQ(labelsOf(*handler), (std::vector<std::uint32_t>{100, 101}));
        EXPECT_FALSE(trapped());
    }
}

TEST_F(ViaSetStackProcessing, EachViaSetIsHandledInAContextOfItsOwn) {
    const auto handler = handlerAnswers({0, 1});
    process({{0}, {100, 17}, {101}});
    ASSERT_EQ(handler->seen.size(), 2U);
    const MplsContext& first = *handler->seen[0];
    EXPECT_EQ(first.routingContext(), context);
    EXPECT_EQ(first.entry(), entryOf(100, 17));
    EXPECT_EQ(first.packetHeader(), inner);
    EXPECT_EQ(first.viaSet(), stack->at(Lumo::MplsStackEntryIndex(1)).viaSet);
    EXPECT_EQ(first.viaSetStack(), stack);
    EXPECT_EQ(first.position().value(), 1);
    EXPECT_EQ(first.nexthops(), nexthops);
    EXPECT_EQ(handler->seen[1]->position().value(), 2);
    EXPECT_NE(handler->seen[1], handler->seen[0]);
}

TEST_F(ViaSetStackProcessing, SeveralNexthopsAreReportedAtEveryPosition) {
    nexthops->nexthopEnq(Tessel::make<RoutingNexthop>(Lumo::IntfId()));
    handlerAnswers({1});
    process({{0}, {7}, {5000}, {100}});
    EXPECT_EQ(timesTraced("Using first nexthop, but 2 nexthops found"), 4U);
    ASSERT_EQ(counters->counters().size(), 1U);
    EXPECT_EQ(counters->counters()[0].category, "Exceptional");
    EXPECT_EQ(counters->counters()[0].count, 4U);
    EXPECT_EQ(pops(), 3U);
}

TEST_F(ViaSetStackProcessing, AReplicaMadeOnTheWayIsReportedAtTheNextLabel) {
    handlerIs([](const Ptr<MplsContext>& one) {
        one->nexthops()->nexthopEnq(Tessel::make<RoutingNexthop>(Lumo::IntfId("east")));
        return ProcessingResult{0};
    });
    process({{100}, {101, 1}});
    EXPECT_EQ(timesTraced("Using first nexthop, but 2 nexthops found"), 1U);
    EXPECT_TRUE(trapped());
    EXPECT_EQ(nexthops->size(), 2U);
}

TEST_F(ViaSetStackProcessing, AWalkThatPassesTheLastPositionIsARangeError) {
    const std::vector<Position> thirteen(13, Position{100});
    auto handler = handlerAnswers(std::vector<ProcessingResult>(13, 0));
    process(thirteen);
    EXPECT_EQ(handler->seen.size(), 13U);

    auto fourteen = thirteen;
    fourteen.push_back({100});
    handler = handlerAnswers(std::vector<ProcessingResult>(14, 0));
    EXPECT_THROW(process(fourteen), Tessel::RangeError);
    EXPECT_EQ(handler->seen.size(), 14U);

    std::vector<ProcessingResult> settledLast(14, 0);
    settledLast.back() = 1;
    handlerAnswers(settledLast);
    EXPECT_NO_THROW(process(fourteen));

    fourteen.back() = {0};
    handlerAnswers(std::vector<ProcessingResult>(13, 0));
    EXPECT_THROW(process(fourteen), Tessel::RangeError);
}

} // namespace
