#include "Live/ports/XdpPort.h"

#include <gtest/gtest.h>
#include <optional>

#include "FrameBytes.h"
#include "Live/ports/PacketPort.h"
#include "LiveTesting.h"

namespace XdpPortTest {

namespace {

using namespace LiveTesting;
using namespace TestSupport::Raw;
using OvixAgent::Frame;
using OvixAgent::LiveEvent;
using OvixAgent::PacketIntake;
using OvixAgent::PacketPort;
using OvixAgent::XdpPort;
using TestSupport::ip;
using TestSupport::pollUntil;

class XdpPortTest : public TestSupport::OwnNetwork {
  protected:
    void SetUp() override {
        OwnNetwork::SetUp();
        if (IsSkipped()) {
            return;
        }
        right.emplace(1, "right");
        if (!right->isOpen()) {
            GTEST_SKIP() << right->problem();
        }
        left.emplace(0, "left", PacketIntake::labelled);
    }

    std::optional<PacketPort> left;
    std::optional<XdpPort> right;
};

void ignore(const Frame&) {}

const Bytes lastLabelled = toRight({ethMpls}, 0xfffffff0);
const Bytes lastOther = toRight({0x88cc}, 0xfffffff0);

const std::vector<Bytes> labelled{
    toRight({ethMpls}, 1),
    toRight({ethMplsUpstream}, 2),
    toRight({ethVlan, 0xe005, ethMpls}, 3),
    toRight({ethServiceVlan, 7, ethMplsUpstream}, 4),
    toRight({ethMpls}, 5, 1500),
    toRight({ethVlan, 5, ethMpls}, 6, 1500),
    toRight({ethMpls}, 7, 0),
    toRight({ethVlan, 5, ethVlan, 6, ethMpls}, 8),
    toRight({ethServiceVlan, 5, ethVlan, 6, ethMplsUpstream}, 9),
    toRight({ethLegacyVlan, 5, ethMpls}, 10),
    toRight({ethVlan, 5, ethVlan, 6, ethLegacyVlan, 7, ethMpls}, 11),
    lastLabelled,
};

const std::vector<Bytes> others{
    toRight({ethIpv4}, 20),
    toRight({ethVlan, 5, ethIpv6}, 21),
    toRight({0x0806}, 22),
    toRight({ethServiceVlan, 5, ethVlan, 6, ethIpv4}, 23),
    toRight({ethVlan, 5, ethVlan, 6, ethVlan, 7, ethVlan, 8, ethMpls}, 25),
    frameOf(leftStation, otherStation, {ethMpls}, 24),
    lastOther,
};

} // namespace

TEST_F(XdpPortTest, ReceivesLabelledFramesAndLeavesOthersToTheStack) {
    PacketPort stack(1, "right", PacketIntake::everything);
    for (const auto* frames : {&labelled, &others}) {
        for (const Bytes& frame : *frames) {
            transmit(*left, frame);
        }
    }
    left->flush();
    EXPECT_EQ(receiveUpTo(*right, lastLabelled), labelled);
    EXPECT_EQ(receiveUpTo(stack, lastOther), others);
    EXPECT_EQ(right->counts().of(LiveEvent::received), labelled.size());
}

TEST_F(XdpPortTest, OfAnAttachmentCircuitTheStackReceivesNothing) {
    PacketPort stack(1, "right", PacketIntake::everything);
    right->intakeIs(PacketIntake::everything);
    for (const Bytes& frame : others) {
        transmit(*left, frame);
    }
    left->flush();
    EXPECT_EQ(receiveUpTo(*right, lastOther), others);
    right->intakeIs(PacketIntake::labelled);
    send(*left, lastOther);
    EXPECT_EQ(receiveUpTo(stack, lastOther), std::vector<Bytes>{lastOther});
}

TEST_F(XdpPortTest, WithCircuitsBehindTagsReceivesWhateverHasOne) {
    right->intakeIs(PacketIntake::taggedToAny);
    const Bytes tagged = frameOf(leftStation, otherStation, {ethVlan, 5, 0x0806}, 1);
    transmit(*left, frameOf(leftStation, otherStation, {ethMpls}, 2));
    transmit(*left, toRight({0x0806}, 3));
    send(*left, tagged);
    EXPECT_EQ(receiveUpTo(*right, tagged), std::vector<Bytes>{tagged});
}

TEST_F(XdpPortTest, ReceivesGroupFrames) {
    Bytes frame = toRight({ethMpls}, 1);
    frame[0] = 1;
    send(*left, frame);
    EXPECT_EQ(receiveUpTo(*right, frame), std::vector<Bytes>{frame});
}

TEST_F(XdpPortTest, ThousandsOfFramesComeInOrderWithinTheBudget) {
    constexpr std::uint32_t perRound = 1500; // less than there are buffers
    for (std::uint32_t round = 0; round < 4; ++round) {
        for (std::uint32_t i = 0; i < perRound; ++i) {
            transmit(*left, toRight({ethMpls}, round * perRound + i));
        }
        left->flush();
        std::uint32_t next = round * perRound;
        const auto look = [&next](const Frame& frame) {
            EXPECT_EQ(frame.port, 1U);
            EXPECT_EQ(Bytes(frame.bytes.begin(), frame.bytes.end()), toRight({ethMpls}, next));
            ++next;
        };
        EXPECT_TRUE(pollUntil([&] { return right->descriptor(); },
                              [&] { EXPECT_LE(right->receive(each(look), 100), 100U); },
                              [&] { return next == (round + 1) * perRound; }));
    }
    EXPECT_EQ(right->counts().of(LiveEvent::ringFull), 0U);
}

TEST_F(XdpPortTest, ThousandsOfFramesAreSentInOrder) {
    constexpr std::uint32_t count = 5000;
    for (std::uint32_t i = 0; i < count; ++i) {
        transmit(*right, toLeft({ethVlan, 5, ethMpls}, i));
    }
    right->flush();
    EXPECT_EQ(right->counts().of(LiveEvent::sent), count);
    std::uint32_t next = 0;
    const auto look = [&next](const Frame& frame) {
        EXPECT_EQ(Bytes(frame.bytes.begin(), frame.bytes.end()),
                  toLeft({ethVlan, 5, ethMpls}, next));
        ++next;
    };
    EXPECT_TRUE(pollUntil([&] { return left->descriptor(); },
                          [&] { left->receive(each(look), 1000); }, [&] { return next == count; }));
}

TEST_F(XdpPortTest, CountsFramesWithoutABuffer) {
    constexpr std::uint64_t count = 5000;
    for (std::uint64_t i = 0; i < count; ++i) {
        transmit(*left, toRight({ethMpls}));
    }
    left->flush();
    std::uint64_t received = 0;
    const auto look = [&received](const Frame&) { ++received; };
    EXPECT_TRUE(
        pollUntil([&] { return right->descriptor(); }, [&] { right->receive(each(look), 100); },
                  [&] { return received + right->counts().of(LiveEvent::ringFull) == count; }));
    EXPECT_GT(right->counts().of(LiveEvent::ringFull), 0U);
}

TEST_F(XdpPortTest, RemovesItsProgramWithThePort) {
    right.reset();
    PacketPort stack(1, "right", PacketIntake::labelled);
    send(*left, lastLabelled);
    EXPECT_EQ(receiveUpTo(stack, lastLabelled), std::vector<Bytes>{lastLabelled});
}

TEST_F(XdpPortTest, ClosesForADeletedInterfaceAndReopensForItsSuccessor) {
    ip("link del right");
    EXPECT_EQ(right->receive(each(ignore), 1), 0U);
    EXPECT_FALSE(right->isOpen());
    EXPECT_EQ(right->problem(), "right: the interface was removed");
    send(*right, toLeft({ethMpls}));
    EXPECT_EQ(right->counts().of(LiveEvent::interfaceGone), 2U);
    EXPECT_FALSE(right->reopen());
    addLinks();
    EXPECT_TRUE(right->reopen()) << right->problem();
    EXPECT_TRUE(left->reopen());
    send(*left, lastLabelled);
    EXPECT_EQ(receiveUpTo(*right, lastLabelled), std::vector<Bytes>{lastLabelled});
    send(*right, toLeft({ethMpls}));
    EXPECT_EQ(receiveUpTo(*left, toLeft({ethMpls})), std::vector<Bytes>{toLeft({ethMpls})});
}

TEST_F(XdpPortTest, SendingNoticesADeletedInterface) {
    ip("link del right");
    send(*right, toLeft({ethMpls}));
    EXPECT_FALSE(right->isOpen());
    EXPECT_EQ(right->counts().of(LiveEvent::interfaceGone), 2U); // the frame, and the port
}

TEST_F(XdpPortTest, FramesStayWhileTheyAreLentWhateverSendingNotices) {
    for (std::uint32_t i = 0; i < 10; ++i) {
        transmit(*left, toRight({ethMpls}, i));
    }
    left->flush();
    std::uint32_t next = 0;
    const auto look = [&](const Frame& frame) {
        if (next == 0) {
            ip("link del right");
            for (std::uint32_t i = 0; i <= OvixAgent::XdpSocket::buffers; ++i) {
                transmit(*right, toLeft({ethMpls}));
            }
            EXPECT_TRUE(right->isOpen());
        }
        EXPECT_EQ(Bytes(frame.bytes.begin(), frame.bytes.end()), toRight({ethMpls}, next));
        ++next;
    };
    EXPECT_TRUE(pollUntil([&] { return right->descriptor(); },
                          [&] { right->receive(each(look), 64); }, [&] { return next == 10; }));
    EXPECT_EQ(right->receive(each(ignore), 64), 0U);
    EXPECT_FALSE(right->isOpen());
}

TEST_F(XdpPortTest, SurvivesALinkGoingDownAndUp) {
    ip("link set right down");
    send(*right, toLeft({ethMpls}, 1));
    EXPECT_EQ(right->counts().of(LiveEvent::linkDown), 1U);
    right->receive(each(ignore), 1);
    EXPECT_TRUE(right->isOpen());
    ip("link set right up");
    awaitOperation("left");
    awaitOperation("right");
    send(*right, toLeft({ethMpls}, 2));
    EXPECT_EQ(receiveUpTo(*left, toLeft({ethMpls}, 2)),
              (std::vector<Bytes>{toLeft({ethMpls}, 1), toLeft({ethMpls}, 2)}));
    send(*left, lastLabelled);
    EXPECT_EQ(receiveUpTo(*right, lastLabelled), std::vector<Bytes>{lastLabelled});
}

TEST_F(XdpPortTest, CountsAFrameLongerThanABuffer) {
    send(*right, Bytes(OvixAgent::XdpSocket::maxFrame + 1));
    EXPECT_EQ(right->counts().of(LiveEvent::tooLong), 1U);
}

TEST_F(XdpPortTest, AnUnsuitableInterfaceIsAProblem) {
    ip("link add name big mtu 9000 type veth peer name bigger");
    EXPECT_EQ(XdpPort(0, "big").problem(),
              "big: an MTU of 9000 is more than 3814, the largest for AF_XDP");
    EXPECT_EQ(XdpPort(0, "none").problem(), "none: finding the interface: No such device");
    EXPECT_FALSE(XdpPort(0, "right").isOpen()); // there is a program already
    EXPECT_TRUE(right->isOpen());
}

} // namespace XdpPortTest
