#include <gtest/gtest.h>
#include <memory>

#include "FrameBytes.h"
#include "HeapCount.h"
#include "Live/ports/FrameSegments.h"
#include "Live/ports/PacketPort.h"
#include "Live/ports/TapPort.h"
#include "Live/ports/XdpPort.h"
#include "LiveTesting.h"
#include "MergedFrame.h"

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
    const OvixAgent::FrameVisitor count = [&](const OvixAgent::Frame& each) {
        received += each.bytes.size() == frame.size() ? 1 : 0;
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

TEST_F(LiveAllocationTest, PacketPortsTakeNothingFromTheHeapPerFrame) {
    PacketPort left(0, "left", PacketIntake::labelled);
    PacketPort right(1, "right", PacketIntake::labelled);
    expectNoAllocation(left, right, toRight({ethVlan, 5, ethMpls}));
}

TEST(FrameSegmentsAllocation, CuttingAFrameUpTakesNothingFromTheHeap) {
    const MergedFrame merged;
    Bytes whole = merged.whole();
    OvixAgent::FrameSegments segments;
    OvixAgent::Frame frame;
    std::size_t count = 0;
    const std::uint64_t before = TestSupport::heapAllocations;
    EXPECT_TRUE(segments.start(whole, merged.work(), {}));
    while (segments.next(frame)) {
        ++count;
    }
    EXPECT_EQ(TestSupport::heapAllocations, before);
    EXPECT_EQ(count, 3U);
}

TEST_F(LiveAllocationTest, XdpPortsTakeNothingFromTheHeapPerFrame) {
    OvixAgent::XdpPort left(0, "left");
    OvixAgent::XdpPort right(1, "right");
    expectNoAllocation(left, right, toRight({ethVlan, 5, ethMpls}));
}

TEST_F(LiveAllocationTest, TapPortsTakeNothingFromTheHeapPerFrame) {
    OvixAgent::TapPort tap(0, "cpu");
    PacketPort stack(1, "cpu", PacketIntake::labelled);
    expectNoAllocation(stack, tap, toLeft({ethMpls}));
}
