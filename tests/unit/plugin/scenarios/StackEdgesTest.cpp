#include "FrameBytes.h"
#include "MadeUpVias.h"

namespace StackEdgesTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

const Bytes payload = udpPacket(0x0a090001);

class StackEdges : public MadeUpViasFixture {
  protected:
    Ptr<OvixMplsViaSetStack> resolve(const std::vector<TestSupport::Entry>& stack) {
        const auto context = contextOf(mplsFrame(stack, payload));
        const auto header = context->packetContext()->parsedPkt().header(1);
        return plugin->resolveViaSetsForLabelStack(context,
                                                   Ptr<MplsHeaderData>(mplsHeaderData(*header)));
    }
};

TEST_F(StackEdges, TheFourteenthLabelIsLookedUpBeforeTheWalkFails) {
    swapRoute(decap, 100, 300);
    EXPECT_THROW(resolve(std::vector<TestSupport::Entry>(14, {100})), Tessel::RangeError);
    EXPECT_EQ(timesTraced("Mpls processing label 100"), 14U);
    EXPECT_EQ(trace.size(), 14U);
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(StackEdges, ALabelBehindTheFourteenthIsNotReached) {
    swapRoute(decap, 100, 300);
    for (const std::uint32_t fifteenth : {100U, 4242U}) {
        trace.clear();
        std::vector<TestSupport::Entry> stack(14, {100});
        stack.push_back({fifteenth});
        EXPECT_THROW(resolve(stack), Tessel::RangeError);
        EXPECT_EQ(trace.size(), 14U);
    }
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(StackEdges, TheWalkNamesEveryLabelEvenThoseItDoesNotLookUp) {
    resolve({{7}, {5000}, {2}, {1048575}});
    ASSERT_GE(trace.size(), 5U);
    trace.erase(trace.begin() + 4, trace.end() - 1);
    EXPECT_EQ(trace, lines({"Mpls processing label 7", "Mpls processing label 5000",
                            "Mpls processing label 2", "Mpls processing label 1048575",
                            "No viaSet for label 1048575"}));
}

TEST_F(StackEdges, OnlyTheLabelOfAnEntryDecidesWhatIsFound) {
    swapRoute(pseudowire, 100, 300);
    const auto context = contextOf(mplsFrame({{100}}, payload));
    for (const std::uint8_t tc : {std::uint8_t{0}, std::uint8_t{7}}) {
        for (const bool bos : {false, true}) {
            for (const std::uint8_t ttl : {std::uint8_t{0}, std::uint8_t{255}}) {
                const Lumo::MplsLabel known(100);
                EXPECT_TRUE(plugin->findOvixMplsViaSet(context, {known, tc, bos, ttl}));
                for (const std::uint32_t other : {99U, 101U, 100U << 4U, 100U | 0x80000U}) {
                    EXPECT_FALSE(plugin->findOvixMplsViaSet(
                        context, {Lumo::MplsLabel(other), tc, bos, ttl}));
                }
            }
        }
    }
}

TEST_F(StackEdges, AnExplicitNullBehindAnIndicatorDoesNotStopTheFrame) {
    madeUpRoute(decap, 100);
    const auto handler = handlerAnswers({1});
    const auto output = routeFrame(mplsFrame({{7, 0}, {2}, {555}, {100}}, payload));
    EXPECT_EQ(handler->seen.size(), 1U);
    EXPECT_EQ(handler->seen[0]->position().value(), 3);
    EXPECT_TRUE(counters->counters().empty());
}

// The walk of the via sets takes the entry right behind an indicator for the entropy label: it pops
// an explicit null there whatever its TTL, and tests the TTL of the label behind it.
TEST_F(StackEdges, AnExplicitNullBehindAnIndicatorHasNoTtlButTheLabelBehindItHas) {
    madeUpRoute(decap, 100);
    const auto handler = handlerAnswers({1});
    routeFrame(mplsFrame({{7, 0}, {2, 1}, {555}, {100}}, payload));
    EXPECT_EQ(handler->seen.size(), 1U);
    EXPECT_TRUE(counters->counters().empty());
    const auto output = routeFrame(mplsFrame({{7, 0}, {2, 1}, {555, 1}, {100}}, payload));
    ASSERT_EQ(output->nexthops()->size(), 1U);
    EXPECT_TRUE(output->nexthops()->nexthopFront()->isCpuTrapNexthop());
    EXPECT_EQ(everythingCounted(),
              (std::vector{row("Exceptional", "ttl for label 555 is <= 1, trapping")}));
}

TEST_F(StackEdges, ASpentTtlIsCountedAndTracedBeforeTheNexthopIsTrapped) {
    const auto stack = Tessel::make<OvixMplsViaSetStack>();
    stack->addViaSetForLabel(Lumo::MplsStackEntryIndex(0), entryOf(0, 1), nullptr);
    const auto nexthops = oneNexthop();
    const auto context = contextOf(mplsFrame({{0, 1}}, payload));
    bool counted = false;
    bool trapped = true;
    TraceOutput::instance().textSinkIs([&](std::string_view, unsigned, std::string_view) {
        counted = !counters->counters().empty();
        trapped = nexthops->nexthopFront()->isCpuTrapNexthop();
    });
    plugin->processViaSetStack(context, nexthops, nullptr, stack);
    EXPECT_TRUE(counted);
    EXPECT_FALSE(trapped);
    EXPECT_TRUE(nexthops->nexthopFront()->isCpuTrapNexthop());
}

TEST_F(StackEdges, TheEntropyMarkOfOneFrameIsForgottenByTheNext) {
    madeUpRoute(decap, 100);
    const auto stack = Tessel::make<OvixMplsViaSetStack>();
    stack->addViaSetForLabel(Lumo::MplsStackEntryIndex(0), entryOf(7, 0), nullptr);
    plugin->processViaSetStack(contextOf(mplsFrame({{7}}, payload)), oneNexthop(), nullptr, stack);
    const auto handler = handlerAnswers({1});
    routeFrame(mplsFrame({{100}}, payload));
    EXPECT_EQ(handler->seen.size(), 1U);
}

} // namespace

} // namespace StackEdgesTest
