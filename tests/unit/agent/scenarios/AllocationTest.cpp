// No frame takes anything from the heap, once the free lists are warm.

#include <gtest/gtest.h>
#include <memory>

#include "ForwarderTesting.h"

// Behind it, since its u16 is another one.

#include "Answers/RateLimit.h"
#include "Capture/CaptureMerge.h"
#include "Capture/CaptureWriter.h"
#include "CaptureTesting.h"
#include "HeapCount.h"
#include "Live/ports/PacketPort.h"
#include "Live/ports/TapPort.h"
#include "Live/ports/WireFrames.h"
#include "Live/ports/XdpPort.h"
#include "LiveTesting.h"
#include "MergedFrame.h"

namespace AllocationTest {

namespace AllocationByCaptures {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

using CaptureAllocationTest = CaptureTest;

TEST_F(CaptureAllocationTest, FramesPassWithoutAllocation) {
    std::string records = pcapHeader(microsecondMagic);
    for (std::uint32_t i = 0; i < 2000; ++i) {
        records += pcapRecord(i, 0, std::string(60 + i % 1400, 'x'));
    }
    std::vector<CaptureReader> readers;
    readers.emplace_back(0, file("a.pcap", records));
    readers.emplace_back(1, file("b.pcap", records));
    CaptureMerge merge(std::move(readers));
    CaptureWriter writer(path("out.pcap"), TimePrecision::microseconds);
    const std::uint64_t before = TestSupport::heapAllocations;
    while (const Frame* const frame = merge.next()) {
        writer.transmit(*frame);
    }
    EXPECT_EQ(TestSupport::heapAllocations, before);
    EXPECT_EQ(writer.frames(), 4000U);
}

} // namespace AllocationByCaptures

namespace AllocationByForwarding {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

class NullPort : public TransmitPort {
  public:
    void transmit(const Frame&) override {}
};

} // namespace

namespace {

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

TEST_F(ForwarderAllocation, ForwardingDoesNotAllocateWhateverTheFate) {
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

namespace {

const std::string allocationConfig = R"(
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24], vrf: red, mpls: true}
  - {name: east, mac: "02:00:00:00:00:02", addresses: [10.0.2.1/24], vrf: red}
neighbours:
  - {address: 10.0.2.2, port: east, mac: "02:00:00:00:02:02"}
  - {address: 10.0.2.3, port: east, mac: "02:00:00:00:02:03"}
routes:
  - {vrf: red, prefix: 192.0.2.1/32, vias: [{nexthop: 10.0.2.2, labels: [300, 301], entropy: true}, {nexthop: 10.0.2.3}]}
)";

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

TEST_F(IpAllocation, IpRoutingDoesNotAllocateWhateverTheFate) {
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

TEST(AnswerAllocation, TheRateLimitDoesNotAllocate) {
    RateLimit limit{AnswerLimits()};
    const Lumo::IpGenAddr source = Lumo::IpGenAddr::fromText("192.0.2.1");
    const std::uint64_t before = TestSupport::heapAllocations;
    for (int i = 0; i < 1000; ++i) {
        if (limit.mayAdmit(AnswerReason::timeExceeded, 0, source, 1'000'000'000)) {
            limit.take(AnswerReason::timeExceeded, 0, source);
        }
    }
    EXPECT_EQ(TestSupport::heapAllocations, before);
}

} // namespace AllocationByForwarding

namespace AllocationByLivePorts {

namespace {

using namespace LiveTesting;
using OvixAgent::LivePort;
using OvixAgent::PacketIntake;
using OvixAgent::PacketPort;
using TestSupport::Raw::ethMpls;
using TestSupport::Raw::ethVlan;

class LiveAllocationTest : public TestSupport::OwnNetwork {};

/// What is allocated while a hundred frames go from one port to the other.
void expectNoAllocation(LivePort& from, LivePort& to, const Bytes& frame) {
    if (!from.isOpen() || !to.isOpen()) {
        GTEST_SKIP() << from.problem() << to.problem();
    }
    std::size_t received = 0;
    const OvixAgent::BurstVisitor count = [&](std::span<OvixAgent::WritableFrame> burst) {
        for (const OvixAgent::WritableFrame& each : burst) {
            received += each.size == frame.size() ? 1 : 0;
        }
    };
    const std::function<int()> descriptor = [&] { return to.descriptor(); };
    const std::function<void()> receive = [&] { to.receive(count, 64); };
    const std::function<bool()> isDone = [&] { return received >= 100; };
    const std::uint64_t before = TestSupport::heapAllocations;
    for (int i = 0; i < 100; ++i) {
        transmit(from, frame);
    }
    from.flush();
    EXPECT_TRUE(TestSupport::pollUntil(descriptor, receive, isDone));
    EXPECT_EQ(TestSupport::heapAllocations, before);
}

} // namespace

TEST_F(LiveAllocationTest, PacketPortsDoNotAllocatePerFrame) {
    PacketPort left(0, "left", PacketIntake::labelled);
    PacketPort right(1, "right", PacketIntake::labelled);
    expectNoAllocation(left, right, toRight({ethVlan, 5, ethMpls}));
}

TEST(FrameSegmentsAllocation, CuttingSegmentsDoesNotAllocate) {
    const MergedFrame merged;
    Bytes whole = merged.whole();
    OvixAgent::FrameSegments segments;
    Bytes room(whole.size());
    std::size_t count = 0;
    const std::uint64_t before = TestSupport::heapAllocations;
    EXPECT_TRUE(segments.start(whole, merged.work(), {}));
    for (; segments.nextSize() > 0; ++count) {
        segments.next(room.data());
    }
    EXPECT_EQ(TestSupport::heapAllocations, before);
    EXPECT_EQ(count, 3U);
}

TEST_F(LiveAllocationTest, XdpPortsDoNotAllocatePerFrame) {
    OvixAgent::XdpPort left(0, "left");
    OvixAgent::XdpPort right(1, "right");
    expectNoAllocation(left, right, toRight({ethVlan, 5, ethMpls}));
}

TEST_F(LiveAllocationTest, TapPortsDoNotAllocatePerFrame) {
    OvixAgent::TapPort tap(0, "cpu");
    PacketPort stack(1, "cpu", PacketIntake::labelled);
    expectNoAllocation(stack, tap, toLeft({ethMpls}));
}

} // namespace AllocationByLivePorts

} // namespace AllocationTest
