#include "ForwarderTesting.h"
#include "HeapCount.h"

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

class NullPort : public TransmitPort {
  public:
    void transmit(const Frame&) override {}
};

class ForwarderAllocation : public ForwarderFixture {
  protected:
    ForwarderAllocation() : quiet(manager, tables, nowhere) {
        for (Port& port : ports.ports()) {
            port.out = &nowhere;
        }
    }

    void send(const Bytes& frame) {
        quiet.receive({west, {}, frame, static_cast<std::uint32_t>(frame.size())});
    }

    NullPort nowhere;
    Forwarder quiet;
};

} // namespace

TEST_F(ForwarderAllocation, AWarmRoadTakesNothingFromTheHeapWhateverTheFate) {
    if (TestSupport::slabsFromHeap) {
        GTEST_SKIP();
    }
    const auto sent = withRewrite(nexthop("east", "10.0.2.2"), swapInfo(300));
    const auto popped = withRewrite(nexthop("east", ""), popInfo());
    const std::pair<const char*, std::vector<Ptr<Ovix::RoutingNexthop>>> fates[]{
        {"forwarded", {sent}},
        {"popped", {popped}},
        {"dropped", {nexthop("east", "10.0.2.9")}},
        {"without a next hop", {}},
        {"punted", {cpuTrap()}},
        {"replicated", {sent, popped, sent}},
    };
    const Bytes tagged = join({eth(ethVlan), tag(5, ethMpls), stack({{100}}), packet()});
    const Bytes ip = join({eth(ethIpv4), packet()});
    for (const auto& fate : fates) {
        handler->decide = [&](const auto&, Ovix::RoutingNexthops& nexthops) {
            for (const auto& to : fate.second) {
                nexthops.nexthopEnq(to);
            }
        };
        send(tagged);
        send(ip);
        const std::uint64_t warm = TestSupport::heapAllocations;
        for (int i = 0; i < 100; ++i) {
            send(tagged);
            send(ip);
        }
        EXPECT_EQ(TestSupport::heapAllocations, warm) << fate.first;
    }
}
