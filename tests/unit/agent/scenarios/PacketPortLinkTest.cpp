#include <gtest/gtest.h>

#include "FrameBytes.h"
#include "Live/ports/PacketPort.h"
#include "LiveTesting.h"

namespace PacketPortLinkTest {

namespace {

using namespace LiveTesting;
using OvixAgent::LiveEvent;
using OvixAgent::PacketIntake;
using OvixAgent::PacketPort;
using TestSupport::ip;
using TestSupport::pollUntil;
using TestSupport::Raw::ethMpls;

class PacketPortLinkTest : public TestSupport::OwnNetwork {};

void ignore(const OvixAgent::Frame&) {}

void expectPasses(PacketPort& from, PacketPort& to, const Bytes& frame) {
    send(from, frame);
    EXPECT_EQ(receiveUpTo(to, frame), std::vector<Bytes>{frame});
}

} // namespace

TEST_F(PacketPortLinkTest, StaysClosedUntilTheInterfaceExists) {
    PacketPort port(0, "late", PacketIntake::labelled);
    EXPECT_FALSE(port.isOpen());
    EXPECT_EQ(port.descriptor(), -1);
    EXPECT_EQ(port.problem(), "late: finding the interface: No such device");
    EXPECT_FALSE(port.reopen());
    EXPECT_EQ(port.receive(each(ignore), 1), 0U);
    send(port, toRight({ethMpls}));
    EXPECT_EQ(port.counts().of(LiveEvent::interfaceGone), 1U);
    ip("link set left down && ip link set left name late && ip link set late up");
    awaitOperation("late");
    awaitOperation("right");
    EXPECT_TRUE(port.reopen());
    EXPECT_EQ(port.problem(), "");
    PacketPort right(1, "right", PacketIntake::labelled);
    expectPasses(port, right, toRight({ethMpls}));
}

TEST_F(PacketPortLinkTest, AnInvalidNameIsAProblem) {
    PacketPort port(0, "longer-than-any-interface", PacketIntake::labelled);
    EXPECT_EQ(port.problem(), "longer-than-any-interface: naming the interface: No such device");
    EXPECT_FALSE(PacketPort(0, "", PacketIntake::labelled).isOpen());
}

TEST_F(PacketPortLinkTest, SurvivesALinkGoingDownAndUp) {
    PacketPort left(0, "left", PacketIntake::labelled);
    PacketPort right(1, "right", PacketIntake::labelled);
    ip("link set right down");
    EXPECT_TRUE(pollUntil([&] { return right.descriptor(); },
                          [&] { right.receive(each(ignore), 1); },
                          [&] { return right.counts().of(LiveEvent::linkDown) == 1; }));
    EXPECT_TRUE(right.isOpen());
    transmit(right, toLeft({ethMpls}, 1));
    send(right, toLeft({ethMpls}, 2));
    EXPECT_EQ(right.counts().of(LiveEvent::linkDown), 3U);
    ip("link set right up");
    awaitOperation("left");
    awaitOperation("right");
    expectPasses(right, left, toLeft({ethMpls}, 3));
    expectPasses(left, right, toRight({ethMpls}, 4));
}

TEST_F(PacketPortLinkTest, ClosesForADeletedInterfaceAndReopensForItsSuccessor) {
    PacketPort left(0, "left", PacketIntake::labelled);
    PacketPort right(1, "right", PacketIntake::labelled);
    expectPasses(left, right, toRight({ethMpls}, 1));
    ip("link del left");
    EXPECT_TRUE(pollUntil([&] { return right.descriptor(); },
                          [&] { right.receive(each(ignore), 1); },
                          [&] { return !right.isOpen(); }));
    EXPECT_EQ(right.problem(), "right: the interface was removed");
    EXPECT_EQ(right.counts().of(LiveEvent::interfaceGone), 1U);
    transmit(left, toRight({ethMpls}, 2)); // not yet aware of it
    send(left, toRight({ethMpls}, 3));
    EXPECT_EQ(left.counts().of(LiveEvent::interfaceGone), 2U);
    addLinks();
    EXPECT_TRUE(left.reopen());
    EXPECT_TRUE(right.reopen());
    expectPasses(left, right, toRight({ethMpls}, 4));
}

TEST_F(PacketPortLinkTest, CountsQueuedFramesOnReopen) {
    PacketPort left(0, "left", PacketIntake::labelled);
    transmit(left, toRight({ethMpls}, 1));
    EXPECT_TRUE(left.reopen());
    left.flush();
    EXPECT_EQ(left.counts().of(LiveEvent::sent), 0U);
    EXPECT_EQ(left.counts().of(LiveEvent::interfaceGone), 1U);
}

// Of all links only the loopback interface has an MTU that large.
TEST_F(PacketPortLinkTest, TruncatesAFrameLongerThanTheRingAllows) {
    ip("link set lo mtu 200000");
    PacketPort port(1, "lo", PacketIntake::everything);
    PacketPort sender(0, "lo", PacketIntake::everything);
    send(sender, toRight({ethMpls}, 1, 150000));
    bool isSeen = false;
    const auto look = [&](const OvixAgent::Frame& frame) {
        isSeen = true;
        EXPECT_EQ(frame.originalLength, 150014U);
        EXPECT_LT(frame.bytes.size(), 150014U);
        EXPECT_GT(frame.bytes.size(), 65549U);
    };
    EXPECT_TRUE(pollUntil([&] { return port.descriptor(); }, [&] { port.receive(each(look), 1); },
                          [&] { return isSeen; }));
    EXPECT_EQ(port.counts().of(LiveEvent::truncated), 1U);
    expectPasses(sender, port, toRight({ethMpls}, 2, 65000));
}

TEST_F(PacketPortLinkTest, HandlesAnMtuIncreaseWhileOpen) {
    PacketPort right(1, "right", PacketIntake::labelled);
    ip("link set left mtu 60000");
    ip("link set right mtu 60000");
    PacketPort left(0, "left", PacketIntake::labelled);
    expectPasses(left, right, toRight({ethMpls}, 1, 60000));
}

} // namespace PacketPortLinkTest
