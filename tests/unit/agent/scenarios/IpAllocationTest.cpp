#include "ForwarderTesting.h"
#include "HeapCount.h"

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

const std::string allocationConfig = R"(
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24], vrf: red}
  - {name: east, mac: "02:00:00:00:00:02", addresses: [10.0.2.1/24], vrf: red}
neighbours:
  - {address: 10.0.2.2, port: east, mac: "02:00:00:00:02:02"}
  - {address: 10.0.2.3, port: east, mac: "02:00:00:00:02:03"}
routes:
  - {vrf: red, prefix: 192.0.2.1/32, vias: [{nexthop: 10.0.2.2, labels: [300, 301]}, {nexthop: 10.0.2.3}]}
)";

class NullPort : public TransmitPort {
  public:
    void transmit(const Frame&) override {}
};

class IpAllocation : public ForwarderFixture {
  protected:
    IpAllocation() : ForwarderFixture(allocationConfig), quiet(manager, tables, nowhere) {
        for (Port& port : ports.ports()) {
            port.out = &nowhere;
        }
    }

    NullPort nowhere;
    Forwarder quiet;
};

} // namespace

TEST_F(IpAllocation, AWarmIpHopTakesNothingFromTheHeapWhateverTheFate) {
    if (TestSupport::slabsFromHeap) {
        GTEST_SKIP();
    }
    auto lookup = withRewrite(nexthop("", "192.0.2.1"), popInfo());
    lookup->vrfNameIs(L3::VrfName(std::string_view("red")));
    handler->decide = always(lookup);
    Ipv4 expired;
    expired.ttl = 1;
    Bytes bad = join({eth(ethIpv4), ipv4({}, udp())});
    bad[14] = 0x44;
    const std::vector<Bytes> frames{join({eth(ethIpv4), ipv4({}, udp(1))}),
                                    join({eth(ethIpv4), ipv4({}, udp(2))}),
                                    join({eth(ethIpv4), ipv4({}, udp(3))}),
                                    join({eth(ethIpv4), ipv4(expired, udp())}),
                                    join({eth(ethIpv4), packet(0x0a000101)}),
                                    join({eth(ethIpv4), packet(0x0b000001)}),
                                    join({eth(ethMpls), stack({{100}}), ipv4({}, udp())}),
                                    join({eth(ethIpv4), ipv4({}, udp(1, 9, filled(3000, 7)))}),
                                    bad};
    const auto sendAll = [&] {
        for (const Bytes& frame : frames) {
            quiet.receive({0, {}, frame, static_cast<std::uint32_t>(frame.size())});
        }
    };
    sendAll();
    const std::uint64_t warm = TestSupport::heapAllocations;
    for (int i = 0; i < 100; ++i) {
        sendAll();
    }
    EXPECT_EQ(TestSupport::heapAllocations, warm);
    EXPECT_GT(ports.ports()[1].sent.frames, 700U); // the big one is cut into three
}
