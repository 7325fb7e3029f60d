#include "HeapCount.h"
#include "MadeUpVias.h"

namespace {

using namespace Ovix;
using namespace TestSupport;

class SelectionAllocation : public MadeUpViasFixture {
  protected:
    /// Allocations of a hundred runs once two have warmed everything up: two, because what the
    /// last run made is still held while the next one is under way.
    template <typename Run>
    static std::uint64_t allocations(Run&& run) {
        run();
        run();
        const std::uint64_t before = heapAllocations;
        for (int i = 0; i < 100; ++i) {
            run();
        }
        return heapAllocations - before;
    }
    void largestRoute(std::uint32_t label) {
        const std::vector<Mpls::WeightedRecord> vias(Mpls::LfibViaSet::capacity, {swapVia(300), 1});
        writers[decap]->routeIs(key(label), Mpls::LfibViaType::ip, Mpls::LfibViaSetType::unicast,
                                vias);
        hardware->adjacencyIs(1, Mpls::Hardware::Adjacency::create(vias, {}, false));
        hardware->routeIs({key(label), 1, false});
    }
};

TEST_F(SelectionAllocation, TheLargestViaSetIsReadAndPickedFromWithoutTheHeap) {
    if (slabsFromHeap) {
        GTEST_SKIP();
    }
    largestRoute(100);
    TraceOutput::instance().textLevelOfAllIs(TraceSource::off);
    const auto context = contextOf(mplsFrame({{100}}, udpPacket(0x0a090001)));
    const Ptr<const Mpls::LfibStatus> lfib = writers[decap]->status();
    Ptr<OvixMplsViaSet> set;
    EXPECT_EQ(allocations([&] { set = plugin->viaSetFromLfibStatus(context, lfib, key(100)); }),
              0U);
    ASSERT_TRUE(set);
    EXPECT_EQ(allocations([&] { set = plugin->viaSetFromHwStatus(context, hardware, key(100)); }),
              0U);
    ASSERT_TRUE(set);
    const auto picking = Tessel::make<MplsContext>(context, entryOf(100), nullptr, set, nullptr,
                                                   Lumo::MplsStackEntryIndex(0), oneNexthop());
    EXPECT_EQ(allocations([&] { plugin->pickUcmpVia(picking, set); }), 0U);
}

TEST_F(SelectionAllocation, DropsAreCountedWithoutTheHeap) {
    if (slabsFromHeap) {
        GTEST_SKIP();
    }
    TraceOutput::instance().textLevelOfAllIs(TraceSource::off);
    const auto context = contextOf(mplsFrame({{100}}, udpPacket(0x0a090001)));
    EXPECT_EQ(allocations([&] { plugin->findOvixMplsViaSet(context, entryOf(100)); }), 0U);
    EXPECT_EQ(counted("Drop", "No via set in lfib %s for %s"), 102U * 4);
}

} // namespace
