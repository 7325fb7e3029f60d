

#include "FrameBytes.h"
#include "MadeUpVias.h"
#include "Ovix/rewrite/MplsRewrites.h"

namespace LabelStackWalksTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

const Bytes payload = udpPacket(0x0a090001);

class LabelStackResolution : public MadeUpViasFixture {
  protected:
    Ptr<OvixMplsViaSetStack> resolveFrame(const Bytes& frame) {
        const auto context = contextOf(frame);
        const auto header = context->packetContext()->parsedPkt().header(1);
        return plugin->resolveViaSetsForLabelStack(context,
                                                   Ptr<MplsHeaderData>(mplsHeaderData(*header)));
    }
    Ptr<OvixMplsViaSetStack> resolve(const std::vector<TestSupport::Entry>& stack) {
        return resolveFrame(mplsFrame(stack, payload));
    }
    /// The first label that the via set found for a label swaps in; 0 without a via set.
    std::uint32_t found(std::uint32_t label) {
        const auto set =
            plugin->findOvixMplsViaSet(contextOf(mplsFrame({{label}}, payload)), entryOf(label));
        return set ? set->via(0).labelOperation().label(0).value() : 0;
    }
    void hardwareRoute(std::uint32_t label, std::uint32_t out) {
        const Mpls::WeightedRecord via{swapVia(out), 1};
        hardware->adjacencyIs(out, Mpls::Hardware::Adjacency::create({&via, 1}, {}, false));
        hardware->routeIs({key(label), out, false});
    }
    static Lumo::MplsStackEntryIndex at(std::uint32_t position) {
        return Lumo::MplsStackEntryIndex(position);
    }
};

TEST_F(LabelStackResolution, AnUnknownTopLabelIsTracedOnce) {
    EXPECT_TRUE(resolve({{4242}, {4243}})->empty());
    EXPECT_EQ(timesTraced("Mpls processing label 4242"), 1U);
    EXPECT_EQ(timesTraced("No viaSet for label 4242"), 1U);
    EXPECT_EQ(timesTraced("Mpls processing label 4243"), 0U);
}

TEST_F(LabelStackResolution, OnlyLabelsBelow8MayBePoppedWithoutALookup) {
    for (const std::uint32_t label : {8U, 32U, 34U, 39U, 0xfffe0U}) {
        swapRoute(decap, label, 300);
        const auto stack = resolve({{label}});
        ASSERT_EQ(stack->size(), 1U) << label;
        EXPECT_TRUE(stack->at(at(0)).viaSet) << label;
    }
}

TEST_F(LabelStackResolution, AWalkKeepsWhatItFoundAboveTheFirstUnknownLabel) {
    swapRoute(decap, 100, 300);
    swapRoute(decap, 102, 300);
    const auto stack = resolve({{100}, {101}, {102}});
    EXPECT_EQ(stack->size(), 1U);
    EXPECT_EQ(timesTraced("No viaSet for label 101"), 1U);
    EXPECT_EQ(timesTraced("Mpls processing label 102"), 0U);
}

TEST_F(LabelStackResolution, ResolvedLabelsAreTracedFromTheTop) {
    swapRoute(decap, 100, 300);
    swapRoute(decap, 1048575, 301);
    resolve({{100}, {0}, {1048575}});
    EXPECT_EQ(trace, lines({"Mpls processing label 100", "Mpls processing label 0",
                            "Mpls processing label 1048575"}));
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(LabelStackResolution, EntriesAreRecordedAsReceived) {
    swapRoute(decap, 100, 300);
    const auto stack = resolveFrame(Raw::join(
        {Raw::eth(Raw::ethMpls), Raw::stack({{100, 5, 17}, {7, 3, 0}, {99, 1, 0}}), payload}));
    ASSERT_EQ(stack->size(), 3U);
    EXPECT_EQ(stack->at(at(0)).entry, Lumo::MplsLabelEntry(Lumo::MplsLabel(100), 5, false, 17));
    EXPECT_EQ(stack->at(at(1)).entry, Lumo::MplsLabelEntry(Lumo::MplsLabel(7), 3, false, 0));
    EXPECT_EQ(stack->at(at(2)).entry, Lumo::MplsLabelEntry(Lumo::MplsLabel(99), 1, true, 0));
}

/// Which positions of a stack get a via set when labels 100 and 555 are known.
struct WalkCase {
    std::vector<std::uint32_t> labels;
    std::string walked; ///< per position recorded: 'v' a via set, '-' none
};

TEST_F(LabelStackResolution, LabelsPoppedWithoutALookupGetNoViaSet) {
    for (const std::uint32_t label : {0U, 2U, 7U, 100U, 555U}) {
        swapRoute(decap, label, 300);
    }
    for (const WalkCase& one : std::vector<WalkCase>{
             {{0, 100}, "-v"},
             {{2, 100}, "-v"},
             {{0, 555, 100}, "-vv"},
             {{7, 555, 100}, "--v"},
             {{7, 12345, 100}, "--v"},
             {{7, 555, 555, 100}, "--vv"},
             {{7, 2, 555, 100}, "---v"},
             {{7, 0, 2, 555, 100}, "----v"},
             {{7, 7, 555, 100}, "---v"},
             {{7, 555, 7, 555, 100}, "----v"},
             {{100, 7, 555, 4242, 100}, "v--"},
             {{7, 3, 100}, "--v"},
             {{7}, "-"},
             {{0}, "-"},
             {{1, 100}, ""},
             {{3, 100}, ""},
             {{4, 100}, ""},
             {{5, 100}, ""},
             {{6, 100}, ""},
             {{8, 100}, ""},
             {{13, 100}, ""},
         }) {
        std::vector<TestSupport::Entry> entries;
        for (const std::uint32_t label : one.labels) {
            entries.push_back({label});
        }
        const auto stack = resolve(entries);
        std::string walked;
        for (std::uint32_t i = 0; i < stack->size(); ++i) {
            walked += stack->at(at(i)).viaSet ? 'v' : '-';
        }
        EXPECT_EQ(walked, one.walked) << ::testing::PrintToString(one.labels);
    }
}

TEST_F(LabelStackResolution, TheEarlierTableWins) {
    const std::array<Table, 4> order = {decap, evpnEs, pseudowire, evpnLeaf};
    hardwareRoute(100, 999);
    EXPECT_EQ(found(100), 999U);
    for (std::size_t i = order.size(); i-- > 0;) {
        swapRoute(order[i], 100, 500 + static_cast<std::uint32_t>(i));
        EXPECT_EQ(found(100), 500 + i);
    }
}

TEST_F(LabelStackResolution, EveryEarlierTableThatLacksTheLabelCountsADrop) {
    const std::array<Table, 4> order = {decap, evpnEs, pseudowire, evpnLeaf};
    for (std::size_t i = 0; i < order.size(); ++i) {
        const auto label = 100 + static_cast<std::uint32_t>(i);
        swapRoute(order[i], label, 300);
        counters = Tessel::make<OvixNamedCounters>();
        EXPECT_EQ(found(label), 300U);
        EXPECT_EQ(counted("Drop", "No via set in lfib %s for %s"), i);
    }
    hardwareRoute(200, 999);
    counters = Tessel::make<OvixNamedCounters>();
    EXPECT_EQ(found(200), 999U);
    EXPECT_EQ(everythingCounted(), (std::vector{row("Drop", "No via set in lfib %s for %s", 4)}));
}

TEST_F(LabelStackResolution, TheTransitTableIsNotConsulted) {
    swapRoute(transit, 100, 300);
    EXPECT_EQ(found(100), 0U);
    hardwareRoute(100, 999);
    EXPECT_EQ(found(100), 999U);
}

TEST_F(LabelStackResolution, TablesNotYetMountedHoldNoLabel) {
    plugin->lfibTables()->decapLfibIs(nullptr);
    plugin->lfibTables()->evpnEthernetSegmentFilterLfibIs(nullptr);
    plugin->lfibTables()->evpnEtreeLeafLabelLfibIs(nullptr);
    plugin->lfibTables()->hardwareStatusIs(nullptr);
    swapRoute(pseudowire, 100, 300);
    EXPECT_EQ(found(100), 300U);
    EXPECT_EQ(found(101), 0U);
    plugin->lfibTables()->pseudowireLfibIs(nullptr);
    EXPECT_EQ(found(100), 0U);
}

TEST_F(LabelStackResolution, OneLabelIsRecordedOrStopsTheWalk) {
    swapRoute(decap, 100, 300);
    const auto stack = Tessel::make<OvixMplsViaSetStack>();
    const auto frame = contextOf(mplsFrame({{100}}, payload));
    EXPECT_FALSE(plugin->updateViaSetStack(frame, at(0), stack, entryOf(100)));
    ASSERT_EQ(stack->size(), 1U);
    EXPECT_TRUE(stack->at(at(0)).viaSet);
    EXPECT_TRUE(plugin->updateViaSetStack(frame, at(1), stack, entryOf(4242)));
    EXPECT_EQ(stack->size(), 1U);
    EXPECT_TRUE(traced("No viaSet for label 4242"));
}

TEST_F(LabelStackResolution, TheWalkEndsWhereTheStackPositionsDo) {
    swapRoute(decap, 100, 300);
    const std::vector<TestSupport::Entry> thirteen(13, {100});
    EXPECT_EQ(resolve(thirteen)->size(), 13U);
    struct Row {
        std::uint32_t fourteenth;
        bool throws;
    };
    for (const Row& one : {Row{100, true}, Row{0, true}, Row{7, true}, Row{4242, false}}) {
        auto entries = thirteen;
        entries.push_back({one.fourteenth});
        if (one.throws) {
            EXPECT_THROW(resolve(entries), Tessel::RangeError) << one.fourteenth;
            EXPECT_EQ(timesTraced("Mpls processing label 0"), one.fourteenth == 0 ? 1U : 0U);
        } else {
            EXPECT_EQ(resolve(entries)->size(), 13U);
        }
        trace.clear();
    }
}

TEST_F(LabelStackResolution, ADeepStackWhoseLastPositionsArePoppedThrowsToo) {
    EXPECT_THROW(resolve(std::vector<TestSupport::Entry>(14, {0})), Tessel::RangeError);
    EXPECT_EQ(resolve(std::vector<TestSupport::Entry>(13, {0}))->size(), 13U);
}

TEST_F(LabelStackResolution, NothingOfAFrameIsLeftToTheNext) {
    swapRoute(decap, 555, 300);
    EXPECT_EQ(resolve({{7}})->size(), 1U);
    const auto stack = resolve({{555}});
    ASSERT_EQ(stack->size(), 1U);
    EXPECT_TRUE(stack->at(at(0)).viaSet);
}

} // namespace

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

TEST_F(ViaSetStackProcessing, TheLabelIsTracedBeforeItsNexthopsAndTheyAreCountedUnderOneName) {
    nexthops->nexthopEnq(Tessel::make<RoutingNexthop>(Lumo::IntfId()));
    process({{7}});
    nexthops->nexthopEnq(Tessel::make<RoutingNexthop>(Lumo::IntfId()));
    const std::vector<std::string> first(trace.begin(), trace.begin() + 2);
    EXPECT_EQ(first, lines({"Processing viaSet for label 7",
                            "Using first nexthop, but 2 nexthops found"}));
    process({{7}});
    EXPECT_EQ(counted("Exceptional", "Using first nexthop, but %s nexthops found"), 2U);
}

TEST_F(ViaSetStackProcessing, AnExplicitNullIsPoppedWhateverViaSetItHas) {
    const auto handler = handlerAnswers({});
    for (const std::uint32_t label : {0U, 2U}) {
        nexthops = oneNexthop();
        stack = Tessel::make<OvixMplsViaSetStack>();
        stack->addViaSetForLabel(Lumo::MplsStackEntryIndex(0), entryOf(label),
                                 Tessel::make<MadeUpViaSet>());
        context = contextOf(mplsFrame({{100}}, udpPacket(0x0a090001)));
        plugin->processViaSetStack(context, nexthops, nullptr, stack);
        EXPECT_EQ(pops(), 1U) << label;
    }
    EXPECT_TRUE(handler->seen.empty());
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

} // namespace LabelStackWalksTest
