

#include "HeapCount.h"
#include "MadeUpVias.h"
#include "MplsOvixMulticast/MplsMldpInputStep.h"
#include "MulticastTesting.h"

namespace AllocationTest {

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

namespace {

using namespace Ovix;
using namespace TestSupport;

/// Takes every packet and keeps none.
class Sink : public Port {
  public:
    using Port::Port;
    std::string_view shortName() const noexcept override { return "cpu"; }
    bool send(const Ptr<Lumo::Pkt>&) override { return true; }
};

class MulticastAllocation : public MulticastFixture {
  protected:
    void SetUp() override {
        MulticastFixture::SetUp();
        TraceOutput::instance().textLevelOfAllIs(TraceSource::off);
        if (slabsFromHeap) {
            GTEST_SKIP();
        }
    }
    template <typename Run>
    static std::uint64_t allocations(Run&& run) {
        run();
        const std::uint64_t before = heapAllocations;
        for (int i = 0; i < 100; ++i) {
            run();
        }
        return heapAllocations - before;
    }
};

TEST_F(MulticastAllocation, ReplicasAndDeliveryTakeNothingFromTheHeap) {
    manager->ports()->portIs(Tessel::make<Sink>(Lumo::CpuIntfId::cpuIdToIntfId(0)));
    const std::vector<Mpls::WeightedRecord> vias(598, {swapVia(300), 1});
    writers[decap]->multicastIpLookupRouteIs(key(500),
                                             tailOn(Lumo::VlanIntfId::vlanIdToIntfId(100)), vias);
    const Bytes frame = mplsFrame({{500}}, udpPacket(0xe8010101));
    std::size_t nexthops = 0;
    const auto route = [&] {
        const auto context = contextOf(frame);
        const auto output = Tessel::make<RoutingOutput>();
        plugin->handleMplsFrame(output, context, context->packetContext()->parsedPkt().header(1),
                                nullptr);
        nexthops = output->nexthops()->size();
    };
    EXPECT_EQ(allocations(route), 0U);
    EXPECT_EQ(nexthops, 598U);
}

TEST_F(MulticastAllocation, TheInputStepTakesNothingFromTheHeap) {
    const Lumo::IntfId vlan100 = Lumo::VlanIntfId::vlanIdToIntfId(100);
    mvpn->vrfIntfIdIs({7}, vlan100);
    Bytes special =
        Raw::join({Raw::eth(Raw::ethVlan), Raw::tag(11, 0x8139), Raw::u32(7), Raw::filled(8, 0),
                   Raw::u32(static_cast<std::uint32_t>(vlan100.value() >> 32U)),
                   Raw::u32(static_cast<std::uint32_t>(vlan100.value()))});
    special.resize(100);
    const auto packets = Lumo::globalPktManager();
    InputVerdict verdict;
    EXPECT_EQ(allocations([&] {
                  verdict = plugin->mplsMldpInputStep()->process(
                      Tessel::make<PacketContext>(packets->newPkt(special)));
              }),
              0U);
    EXPECT_EQ(verdict.kind, InputVerdict::Kind::modified);
}

} // namespace

} // namespace AllocationTest
