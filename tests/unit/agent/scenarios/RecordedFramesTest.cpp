#include "ForwarderTesting.h"
#include "IpTesting.h"

namespace RecordedFramesTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

/// What is recorded for a reason; the test fails when there is nothing.
const FrameRecorder::Log& logOf(const Forwarder& forwarder, std::string_view reason) {
    static const FrameRecorder::Log none(drop("nothing"));
    for (const auto& log : forwarder.recorder().logs()) {
        if (log->reason == reason) {
            return *log;
        }
    }
    ADD_FAILURE() << "nothing is recorded for: " << reason;
    return none;
}

Bytes bytesOf(const RecordedFrame& frame) {
    return {frame.bytes().begin(), frame.bytes().end()};
}

class RecordedLabels : public ForwarderFixture {
  protected:
    const FrameRecorder::Log& recorded(std::string_view reason) const {
        return logOf(*forwarder, reason);
    }
};

class RecordedPackets : public IpRouting {
  protected:
    RecordedPackets() { tables.neighbours.solicitsIs(true); }
};

} // namespace

TEST_F(RecordedLabels, AFrameIsRecordedAsItCameInWithItsPortAndTime) {
    const Bytes frame = labelled({{100}, {200}});
    receive(
        frame, [](const auto&, auto&) {}, 4);
    const FrameRecorder::Log& log = recorded("No next hop");
    ASSERT_EQ(log.kept(), 1U);
    EXPECT_EQ(log.kind, FateKind::dropped);
    EXPECT_EQ(bytesOf(log.keptAt(0)), frame);
    EXPECT_EQ(log.keptAt(0).length, frame.size() + 4);
    EXPECT_EQ(log.keptAt(0).time, (CaptureTime{1, 2}));
    EXPECT_EQ(log.keptAt(0).port, west);
    EXPECT_EQ(log.keptAt(0).via(), RecordedVia());
    EXPECT_EQ(log.byPort(), (std::vector<std::uint64_t>{1}));
}

TEST_F(RecordedLabels, WhereAFrameWouldHaveLeftIsRecorded) {
    receive(labelled(), always(withRewrite(nexthop("dark", "10.0.3.2"), swapInfo(200))));
    EXPECT_EQ(recorded("Egress port is down").keptAt(0).via(),
              (RecordedVia{dark, Lumo::IpGenAddr::fromText("10.0.3.2")}));
    EXPECT_EQ(bytesOf(recorded("Egress port is down").keptAt(0)), labelled())
        << "as it came in, not as it would have left";
    receive(labelled(), always(nexthop("east", "10.0.2.9")));
    EXPECT_EQ(recorded("No neighbour for the next hop").keptAt(0).via(),
              (RecordedVia{east, Lumo::IpGenAddr::fromText("10.0.2.9")}));
    receive(labelled(), always(nexthop("nowhere", "10.0.2.9")));
    EXPECT_EQ(recorded("No port for the egress interface").keptAt(0).via(),
              (RecordedVia{RecordedVia::noPort, Lumo::IpGenAddr::fromText("10.0.2.9")}));
    receive(labelled(), [](const auto&, auto&) {});
    EXPECT_EQ(recorded("No next hop").keptAt(0).via(), RecordedVia())
        << "not that of another frame";
}

TEST_F(RecordedLabels, WhatIsForwardedIsNotRecordedAndWhatIsPuntedIs) {
    receive(labelled(), always(nexthop("east", "10.0.2.2")));
    EXPECT_EQ(forwarder->recorder().sequence(), 0U);
    receive(labelled(), always(cpuTrap()));
    EXPECT_EQ(recorded("Trapped to the CPU").kind, FateKind::punted);
    EXPECT_EQ(forwarder->recorder().sequence(), 1U);
}

TEST_F(RecordedPackets, APacketThatHasWaitedIsRecordedWithTheNeighbourThatItWaitedFor) {
    using Clock = Sender::Clock;
    receiveIp(packetTo("10.0.2.77"));
    receiveIp(packetTo("10.66.0.1"));
    EXPECT_EQ(logOf(*forwarder, "No route").keptAt(0).viaPort, RecordedVia::noPort);
    forwarder->settleWaiting(Clock::now() + WaitingPackets::longest);
    const RecordedVia expected{east, Lumo::IpGenAddr::fromText("10.0.2.77")};
    EXPECT_EQ(logOf(*forwarder, "No neighbour for the next hop").keptAt(0).via(), expected);
    const auto wanted = forwarder->recorder().unresolved().top(10, 0);
    ASSERT_EQ(wanted.size(), 1U);
    EXPECT_EQ(wanted.front().key, expected);
}

// A frame that makes another one give up its place is not to be taken for that one.
TEST_F(RecordedPackets, APacketThatMadeRoomIsRecordedWithItsOwnNeighbour) {
    for (std::size_t i = 0; i <= WaitingPackets::mostPerNeighbour; ++i) {
        receiveIp(packetTo("10.0.2.77"));
    }
    EXPECT_EQ(logOf(*forwarder, "No neighbour for the next hop").keptAt(0).viaNexthop.text(),
              "10.0.2.77");
}

} // namespace RecordedFramesTest
