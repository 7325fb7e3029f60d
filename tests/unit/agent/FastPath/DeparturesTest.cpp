#include "FastPath/Departures.h"

#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <vector>

#include "FrameBytes.h"

namespace DeparturesTest {

using namespace OvixAgent;
using namespace TestSupport::Raw;

namespace {

/// What was sent by any of the ports, burst by burst.
struct Sent {
    char port;
    std::vector<Bytes> frames;
    std::vector<std::uint32_t> times; ///< nanoseconds
    bool operator==(const Sent&) const = default;
};

class RecordingPort : public TransmitPort {
  public:
    RecordingPort(char name, std::vector<Sent>& sent) : name_(name), sent_(&sent) {}
    void transmit(const Frame& frame) override { transmitBurst({&frame, 1}); }
    void transmitBurst(std::span<const Frame> frames) override {
        Sent& burst = sent_->emplace_back(Sent{name_, {}, {}});
        for (const Frame& frame : frames) {
            burst.frames.emplace_back(frame.bytes.begin(), frame.bytes.end());
            burst.times.push_back(frame.time.nanoseconds);
            EXPECT_EQ(frame.originalLength, frame.bytes.size());
        }
    }

  private:
    char name_;
    std::vector<Sent>* sent_;
};

class DeparturesTest : public ::testing::Test {
  protected:
    DeparturesTest() {
        a.out = &outOfA;
        b.out = &outOfB;
    }
    static Bytes numbered(std::uint8_t number) { return filled(20, number); }
    /// A frame that came in; it is kept until the end of the test.
    WritableFrame frame(std::uint8_t number) {
        Bytes& memory = *memories.emplace_back(
            std::make_unique<Bytes>(join({filled(frameHeadroom, 0xa5), numbered(number)})));
        return {memory.data() + frameHeadroom, 20, 20, frameHeadroom, 3, CaptureTime{1, number}};
    }
    void sendNumbered(std::uint8_t number, Port& port) {
        const WritableFrame received = frame(number);
        departures.sendAs(received, received.port, port, {received.bytes, received.size});
    }
    std::vector<std::size_t> sizes() const {
        std::vector<std::size_t> all;
        for (const Sent& burst : sent) {
            all.push_back(burst.frames.size());
        }
        return all;
    }
    std::vector<Sent> sent;
    std::vector<std::unique_ptr<Bytes>> memories;
    RecordingPort outOfA{'a', sent};
    RecordingPort outOfB{'b', sent};
    Port a;
    Port b;
    FrameAccounts accounts;
    Departures departures{accounts};
};

} // namespace

TEST_F(DeparturesTest, FramesLeaveTogetherWhileThePortStaysTheSame) {
    std::uint8_t number = 0;
    for (Port* port : {&a, &a, &b, &a, &b, &b}) {
        sendNumbered(number++, *port);
    }
    departures.flush();
    const std::vector<Sent> expected{{'a', {numbered(0), numbered(1)}, {0, 1}},
                                     {'b', {numbered(2)}, {2}},
                                     {'a', {numbered(3)}, {3}},
                                     {'b', {numbered(4), numbered(5)}, {4, 5}}};
    EXPECT_EQ(sent, expected);
    EXPECT_EQ(a.sent, (Traffic{3, 60}));
    EXPECT_EQ(b.sent, (Traffic{3, 60}));
}

TEST_F(DeparturesTest, MoreThanABurstLeavesInSeveral) {
    for (std::uint8_t number = 0; number < 150; ++number) {
        sendNumbered(number, a);
    }
    departures.flush();
    EXPECT_EQ(sizes(), (std::vector<std::size_t>{64, 64, 22}));
    std::uint8_t next = 0;
    for (const Sent& burst : sent) {
        for (const Bytes& bytes : burst.frames) {
            EXPECT_EQ(bytes, numbered(next++));
        }
    }
}

TEST_F(DeparturesTest, WhatHasLeftDoesNotLeaveAgain) {
    departures.flush();
    sendNumbered(1, a);
    departures.flush();
    departures.flush();
    sendNumbered(2, a);
    departures.flush();
    EXPECT_EQ(sizes(), (std::vector<std::size_t>{1, 1}));
}

TEST_F(DeparturesTest, APacketLeavesBehindItsLinkHeader) {
    WritableFrame received = frame(9);
    PacketWork work;
    work.frame = &received;
    work.packet = received.bytes + 14;
    work.length = 6;
    work.port = 2;
    EgressLine line;
    line.port = &a;
    std::iota(line.macs.begin(), line.macs.end(), std::uint8_t{1});
    line.tagBytes = 4;
    line.tags = {0x81, 0, 0, 5};
    departures.send(work, line, ethMpls);
    departures.flush();
    const Bytes expected = join(
        {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, {0x81, 0, 0, 5}, u16(ethMpls), filled(6, 9)});
    EXPECT_EQ(sent, (std::vector<Sent>{{'a', {expected}, {9}}}));
    EXPECT_EQ(a.sent, (Traffic{1, 24}));
}

TEST_F(DeparturesTest, ReplicasAreCountedBesideTheFrame) {
    const WritableFrame received = frame(1);
    const Bytes copy = filled(30, 2);
    departures.sendAs(received, received.port, a, copy);
    departures.sendAs(received, received.port, a, copy);
    departures.countReplicas(2);
    departures.sendAs(received, received.port, a, {received.bytes, received.size});
    departures.flush();
    EXPECT_EQ(sent, (std::vector<Sent>{{'a', {copy, copy, numbered(1)}, {1, 1, 1}}}));
    Summary summary;
    accounts.addTo(summary);
    EXPECT_EQ(summary.replicas, 2U);
    EXPECT_EQ(a.sent, (Traffic{3, 80}));
}

TEST_F(DeparturesTest, ADroppedFrameIsCountedForItsReason) {
    departures.drop(frame(1), 3, departures.logOf("no reason"));
    departures.drop(frame(2), 3, departures.logOf("no reason"));
    departures.flush();
    EXPECT_TRUE(sent.empty());
    Summary summary;
    accounts.addTo(summary);
    EXPECT_EQ(summary.dropped.counts(), (std::map<std::string, std::uint64_t>{{"no reason", 2}}));
}

} // namespace DeparturesTest
