#include "Trace/LiveTrace.h"

#include "ForwarderTesting.h"

namespace LiveTraceTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using Clock = Sender::Clock;

namespace {

class LiveTraceTest : public ForwarderFixture {
  protected:
    LiveTraceTest() {
        tables.neighbours.solicitsIs(true);
        forwarder->settledIs(
            [this](const Fate& fate, const Frame& frame) { trace.settled(frame, fate); });
    }
    /// A packet to a neighbour whose MAC address is not known.
    void receiveTraced() {
        handler->decide = always(nexthop("east", "10.0.2.77"));
        const Bytes bytes = labelled();
        const Frame frame{west, CaptureTime{1, ++number}, bytes,
                          static_cast<std::uint32_t>(bytes.size())};
        trace.follow(
            frame, number, [&] { forwarder->receive(frame); },
            [this] { return forwarder->lastFate(); });
    }
    void start(std::uint64_t limit) {
        TraceFilter filter;
        filter.limit = limit;
        trace.start(filter);
    }
    std::string lastLine() const { return trace.lines().empty() ? "" : trace.lines().back(); }

    LiveTrace trace{ports};
    std::uint32_t number = 0;
};

} // namespace

TEST_F(LiveTraceTest, APacketThatWaitedHasOneMoreLineWhenItIsSent) {
    start(10);
    receiveTraced();
    EXPECT_EQ(lastLine(), "frame 1 west - fate: waiting, reason Waits for its neighbour");
    tables.neighbours.learn(Lumo::IpGenAddr::fromText("10.0.2.77"), east, {2, 0, 0, 0, 0, 0x77});
    forwarder->settleWaiting(Clock::now());
    EXPECT_EQ(lastLine(), "frame 1 west - settled: forwarded");
}

TEST_F(LiveTraceTest, APacketThatWaitedInVainHasOneMoreLineWithTheReason) {
    start(10);
    receiveTraced();
    forwarder->settleWaiting(Clock::time_point::max());
    EXPECT_EQ(lastLine(),
              "frame 1 west - settled: dropped, reason " + std::string(Reason::noNeighbour));
}

TEST_F(LiveTraceTest, GoesOnUntilThePacketsOfItsLastFramesAreSettled) {
    start(1);
    receiveTraced();
    receiveTraced();
    EXPECT_TRUE(trace.isOn());
    EXPECT_EQ(trace.frames(), 1U) << "the second is not traced";
    forwarder->settleWaiting(Clock::time_point::max());
    EXPECT_FALSE(trace.isOn());
    EXPECT_EQ(lastLine().substr(0, 22), "frame 1 west - settled");
}

TEST_F(LiveTraceTest, WhatWasNotTracedIsNotSettledInTheTrace) {
    receiveTraced();
    start(10);
    forwarder->settleWaiting(Clock::time_point::max());
    EXPECT_TRUE(trace.lines().empty());
}

} // namespace LiveTraceTest
