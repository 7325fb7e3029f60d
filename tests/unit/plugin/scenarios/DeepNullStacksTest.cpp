#include "FrameBytes.h"
#include "MadeUpVias.h"

namespace DeepNullStacksTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

const Bytes toHost = udpPacket(0x0a090001);
const Bytes lspPing = udpPacket(0x7f000001, 3503);

/// OAM is looked for before labels are: no stack is too deep for it.
class DeepNullStacks : public MadeUpViasFixture {
  protected:
    static std::vector<TestSupport::Entry> nulls(std::size_t depth) {
        std::vector<TestSupport::Entry> stack;
        for (std::size_t i = 0; i < depth; ++i) {
            stack.push_back({i % 2 == 0 ? 0U : 2U});
        }
        return stack;
    }
    void expectPunted(const std::vector<TestSupport::Entry>& stack, const Bytes& payload) {
        counters = Tessel::make<OvixNamedCounters>();
        const auto output = routeFrame(mplsFrame(stack, payload));
        ASSERT_EQ(output->nexthops()->size(), 1U) << stack.size();
        EXPECT_TRUE(output->nexthops()->nexthopFront()->isCpuTrapNexthop());
        EXPECT_EQ(everythingCounted(), (std::vector{row("Action", "MPLS Oam packet")}));
    }
};

TEST_F(DeepNullStacks, OverAnLspPingAreOam) {
    for (const std::size_t depth : {1U, 12U, 13U, 14U, 15U, 40U, 300U}) {
        expectPunted(nulls(depth), lspPing);
    }
}

TEST_F(DeepNullStacks, OverARouterAlertAreOam) {
    for (const std::size_t depth : {1U, 13U, 14U, 40U, 300U}) {
        auto stack = nulls(depth);
        stack.push_back({1});
        stack.push_back({100});
        expectPunted(stack, toHost);
    }
}

TEST_F(DeepNullStacks, OverAHostAreWalkedToTheLastPositionAndNoFurther) {
    EXPECT_EQ(routeFrame(mplsFrame(nulls(13), toHost))->nexthops()->size(), 1U);
    for (const std::size_t depth : {14U, 15U, 300U}) {
        trace.clear();
        EXPECT_THROW(routeFrame(mplsFrame(nulls(depth), toHost)), Tessel::RangeError);
        EXPECT_EQ(trace.size(), 14U) << depth;
    }
    EXPECT_TRUE(counters->counters().empty());
}

} // namespace

} // namespace DeepNullStacksTest
