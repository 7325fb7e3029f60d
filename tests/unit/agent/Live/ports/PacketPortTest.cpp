#include "Live/ports/PacketPort.h"

#include <gtest/gtest.h>

#include "FrameBytes.h"
#include "LiveTesting.h"

namespace PacketPortTest {

namespace {

using namespace LiveTesting;
using namespace TestSupport::Raw;
using OvixAgent::Frame;
using OvixAgent::LiveEvent;
using OvixAgent::PacketIntake;
using OvixAgent::PacketPort;
using TestSupport::ip;

class PacketPortTest : public TestSupport::OwnNetwork {};

/// Sends all of them to the right, and a labelled one behind them; what came before that one.
std::vector<Bytes> passed(PacketIntake intake, const std::vector<Bytes>& sent) {
    PacketPort left(0, "left", PacketIntake::labelled);
    PacketPort right(1, "right", intake);
    const Bytes last = toRight({ethMpls}, 0xfffffff0);
    for (const Bytes& frame : sent) {
        transmit(left, frame);
    }
    send(left, last);
    std::vector<Bytes> received = receiveUpTo(right, last);
    EXPECT_FALSE(received.empty()) << left.problem() << right.problem();
    if (!received.empty()) {
        received.pop_back();
    }
    return received;
}

const std::vector<Bytes> labelled{
    toRight({ethMpls}, 1),
    toRight({ethMplsUpstream}, 2),
    toRight({ethVlan, 5, ethMpls}, 3),
    toRight({ethVlan, 0xefff, ethMpls}, 4),
    toRight({ethVlan, 0xe000, ethMplsUpstream}, 5),
    toRight({ethServiceVlan, 7, ethMpls}, 6),
    toRight({ethServiceVlan, 7, ethVlan, 9, ethMpls}, 7),
    toRight({ethMpls}, 8, 1500),
    toRight({ethVlan, 5, ethMpls}, 9, 1500),
    toRight({ethLegacyVlan, 7, ethMpls}, 10),
    toRight({ethLegacyVlan, 7, ethVlan, 9, ethMpls}, 11),
    toRight({ethVlan, 7, ethLegacyVlan, 9, ethMpls}, 12),
};

const std::vector<Bytes> ipFrames{
    toRight({ethIpv4}, 20),
    toRight({ethIpv6}, 21),
    toRight({ethVlan, 5, ethIpv4}, 22),
    toRight({ethVlan, 5, ethIpv6}, 23),
};

const std::vector<Bytes> othersFrames{
    frameOf(leftStation, otherStation, {ethMpls}, 30),
    frameOf(leftStation, otherStation, {ethIpv4}, 31),
    toRight({0x0806}, 32),
    toRight({ethVlan, 5, 0x0806}, 33),
    toRight({0x88cc}, 34),
};

std::vector<Bytes> joined(std::initializer_list<std::vector<Bytes>> lists) {
    std::vector<Bytes> all;
    for (const auto& list : lists) {
        all.insert(all.end(), list.begin(), list.end());
    }
    return all;
}

} // namespace

TEST_F(PacketPortTest, ReceivesLabelledFramesWithTheirTags) {
    EXPECT_EQ(passed(PacketIntake::labelled, labelled), labelled);
}

TEST_F(PacketPortTest, ALabelledIntakeReceivesOnlyLabelledFrames) {
    EXPECT_EQ(passed(PacketIntake::labelled, joined({ipFrames, othersFrames, labelled})), labelled);
}

TEST_F(PacketPortTest, AnIpIntakeReceivesFramesToItsMac) {
    const auto all = joined({labelled, ipFrames});
    EXPECT_EQ(passed(PacketIntake::labelledAndIp, joined({labelled, ipFrames, othersFrames})), all);
}

TEST_F(PacketPortTest, AnAttachmentCircuitReceivesEverything) {
    const auto all = joined({labelled, ipFrames, othersFrames});
    EXPECT_EQ(passed(PacketIntake::everything, all), all);
}

TEST_F(PacketPortTest, WithCircuitsBehindTagsReceivesWhateverHasOne) {
    const std::vector<Bytes> tagged{
        toRight({ethVlan, 5, 0x0806}, 40),
        frameOf(leftStation, otherStation, {ethVlan, 5, ethIpv4}, 41),
        frameOf(leftStation, otherStation, {ethServiceVlan, 5, ethVlan, 6, 0x88cc}, 42),
        frameOf(leftStation, otherStation, {ethLegacyVlan, 5, ethIpv4}, 43),
    };
    const std::vector<Bytes> others{
        frameOf(leftStation, otherStation, {ethMpls}, 50),
        frameOf(leftStation, otherStation, {ethIpv4}, 51),
        toRight({0x0806}, 52),
    };
    EXPECT_EQ(passed(PacketIntake::taggedToAny, joined({others, labelled, ipFrames, tagged})),
              joined({labelled, ipFrames, tagged}));
}

TEST_F(PacketPortTest, BecomesAnAttachmentCircuitAndCeasesToBeOne) {
    PacketPort left(0, "left", PacketIntake::labelled);
    PacketPort right(1, "right", PacketIntake::labelled);
    const Bytes other = frameOf(leftStation, otherStation, {0x0806}, 1);
    const Bytes last = toRight({ethMpls}, 2);
    for (const bool isCircuit : {false, true, false}) {
        right.intakeIs(isCircuit ? PacketIntake::everything : PacketIntake::labelled);
        EXPECT_EQ(right.warning(), "");
        transmit(left, other);
        send(left, last);
        const auto expected =
            isCircuit ? std::vector<Bytes>{other, last} : std::vector<Bytes>{last};
        EXPECT_EQ(receiveUpTo(right, last), expected);
    }
}

TEST_F(PacketPortTest, NobodyElseSendsAtAnAttachmentCircuit) {
    PacketPort circuit(0, "left", PacketIntake::everything);
    ASSERT_EQ(circuit.warning(), "");
    PacketPort another(0, "left", PacketIntake::labelled);
    PacketPort right(1, "right", PacketIntake::labelled);
    send(another, toRight({ethMpls}, 1));
    send(circuit, toRight({ethMpls}, 2));
    EXPECT_EQ(receiveUpTo(right, toRight({ethMpls}, 2)), std::vector<Bytes>{toRight({ethMpls}, 2)});
    circuit.intakeIs(PacketIntake::labelled);
    send(another, toRight({ethMpls}, 3));
    EXPECT_EQ(receiveUpTo(right, toRight({ethMpls}, 3)), std::vector<Bytes>{toRight({ethMpls}, 3)});
}

TEST_F(PacketPortTest, DoesNotReceiveFramesOfTheHost) {
    PacketPort left(0, "left", PacketIntake::everything);
    PacketPort other(0, "left", PacketIntake::everything);
    PacketPort right(1, "right", PacketIntake::everything);
    send(left, toRight({ethMpls}, 1));
    send(other, toRight({ethMpls}, 2));
    ASSERT_EQ(receiveUpTo(right, toRight({ethMpls}, 2)).size(), 2U);
    send(right, toLeft({ethMpls}, 3));
    EXPECT_EQ(receiveUpTo(left, toLeft({ethMpls}, 3)), std::vector<Bytes>{toLeft({ethMpls}, 3)});
}

TEST_F(PacketPortTest, FramesHavePortTimeAndLength) {
    PacketPort left(0, "left", PacketIntake::labelled);
    PacketPort right(7, "right", PacketIntake::labelled);
    timespec before{};
    clock_gettime(CLOCK_REALTIME, &before);
    send(left, toRight({ethVlan, 5, ethMpls}));
    bool isSeen = false;
    const auto look = [&](const Frame& frame) {
        isSeen = true;
        EXPECT_EQ(frame.port, 7U);
        EXPECT_EQ(frame.originalLength, frame.bytes.size());
        EXPECT_GE(frame.time.seconds, before.tv_sec);
        EXPECT_LE(frame.time.seconds, before.tv_sec + 20);
        EXPECT_LT(frame.time.nanoseconds, 1'000'000'000U);
    };
    EXPECT_TRUE(TestSupport::pollUntil([&] { return right.descriptor(); },
                                       [&] { right.receive(each(look), 1); },
                                       [&] { return isSeen; }));
}

TEST_F(PacketPortTest, ThousandsOfFramesArriveInOrderWithinTheBudget) {
    constexpr std::uint32_t count = 5000;
    PacketPort left(0, "left", PacketIntake::labelled);
    PacketPort right(1, "right", PacketIntake::labelled);
    for (std::uint32_t i = 0; i < count; ++i) {
        transmit(left, toRight({ethMpls}, i));
    }
    left.flush();
    EXPECT_EQ(left.counts().of(LiveEvent::sent), count);
    std::uint32_t next = 0;
    const auto look = [&next](const Frame& frame) {
        const Bytes bytes(frame.bytes.begin(), frame.bytes.end());
        EXPECT_EQ(bytes, toRight({ethMpls}, next));
        ++next;
    };
    EXPECT_TRUE(TestSupport::pollUntil([&] { return right.descriptor(); },
                                       [&] { EXPECT_LE(right.receive(each(look), 7), 7U); },
                                       [&] { return next == count; }));
    EXPECT_EQ(right.counts().of(LiveEvent::received), count);
    EXPECT_EQ(right.counts().of(LiveEvent::ringFull), 0U);
}

TEST_F(PacketPortTest, FramesThatHaveComeAreHandedOnInBursts) {
    PacketPort left(0, "left", PacketIntake::labelled);
    PacketPort right(1, "right", PacketIntake::labelled);
    for (std::uint32_t i = 0; i < 150; ++i) {
        transmit(left, toRight({ethMpls}, i));
    }
    left.flush();
    std::vector<std::size_t> sizes;
    const OvixAgent::BurstVisitor look = [&](std::span<OvixAgent::WritableFrame> burst) {
        sizes.push_back(burst.size());
    };
    std::size_t received = 0;
    EXPECT_TRUE(TestSupport::pollUntil([&] { return right.descriptor(); },
                                       [&] { received += right.receive(look, 1000); },
                                       [&] { return received == 150; }));
    EXPECT_EQ(*std::max_element(sizes.begin(), sizes.end()), OvixAgent::burstFrames);
}

// The kernel delivers a frame on a virtual link while it is being sent, unless it is busy.
TEST_F(PacketPortTest, AFrameIsHandedOnAsSoonAsItHasCome) {
    PacketPort left(0, "left", PacketIntake::labelled);
    PacketPort right(1, "right", PacketIntake::labelled);
    constexpr std::uint32_t count = 100;
    std::size_t atOnce = 0;
    const auto ignore = [](const Frame&) {};
    for (std::uint32_t i = 0; i < count; ++i) {
        send(left, toRight({ethMpls}, i));
        atOnce += right.receive(each(ignore), 1);
    }
    EXPECT_GT(atOnce, count / 2);
}

TEST_F(PacketPortTest, FramesAroundTheSizeOfASlotArriveWholeAndInOrder) {
    ip("link set left mtu 9000");
    ip("link set right mtu 9000");
    std::vector<Bytes> frames;
    for (std::size_t payload = 1550; payload < 1700; ++payload) {
        frames.push_back(toRight({ethMpls}, 1, payload));
        frames.push_back(toRight({ethVlan, 5, ethMpls}, 2, payload));
        frames.push_back(toRight({ethMpls}, 3, payload % 3 == 0 ? 9000 : 50));
    }
    EXPECT_EQ(passed(PacketIntake::labelled, frames), frames);
}

TEST_F(PacketPortTest, CountsLongFramesThatOverflowTheQueueAndCutsNoneShort) {
    constexpr std::uint64_t count = 2000;
    constexpr std::size_t payload = 60000;
    ip("link set left mtu 65535");
    ip("link set right mtu 65535");
    PacketPort left(0, "left", PacketIntake::labelled);
    PacketPort right(1, "right", PacketIntake::labelled);
    const Bytes frame = toRight({ethMpls}, 0, payload);
    for (std::uint64_t i = 0; i < count; ++i) {
        transmit(left, frame);
    }
    left.flush();
    ASSERT_EQ(left.counts().of(LiveEvent::sent), count);
    std::uint64_t received = 0;
    const auto look = [&](const Frame& each) {
        EXPECT_EQ(each.bytes.size(), frame.size());
        ++received;
    };
    const auto lost = [&] { return right.counts().of(LiveEvent::ringFull); };
    EXPECT_TRUE(TestSupport::pollUntil([&] { return right.descriptor(); },
                                       [&] { right.receive(each(look), 500); },
                                       [&] { return received + lost() == count; }));
    EXPECT_GT(received, 0U);
    EXPECT_GT(lost(), 0U);
    EXPECT_EQ(right.counts().of(LiveEvent::truncated), 0U);
}

TEST_F(PacketPortTest, CountsFramesThatOverflowTheRing) {
    constexpr std::uint64_t count = 30000;
    PacketPort left(0, "left", PacketIntake::labelled);
    PacketPort right(1, "right", PacketIntake::labelled);
    const Bytes frame = toRight({ethMpls}, 0, 1400);
    for (std::uint64_t i = 0; i < count; ++i) {
        transmit(left, frame);
    }
    left.flush();
    ASSERT_EQ(left.counts().of(LiveEvent::sent), count);
    const auto dropped = right.counts().of(LiveEvent::ringFull);
    EXPECT_GT(dropped, 0U);
    std::uint64_t received = 0;
    EXPECT_TRUE(
        TestSupport::pollUntil([&] { return right.descriptor(); },
                               [&] { right.receive(each([&](auto&) { ++received; }), 500); },
                               [&] { return received + dropped == count; }));
}

TEST_F(PacketPortTest, CountsAFrameAboveTheMtuAndSendsTheNext) {
    PacketPort left(0, "left", PacketIntake::labelled);
    PacketPort right(1, "right", PacketIntake::labelled);
    transmit(left, toRight({ethMpls}, 1, 1501));
    send(left, toRight({ethMpls}, 2, 1500));
    const Bytes second = toRight({ethMpls}, 2, 1500);
    EXPECT_EQ(receiveUpTo(right, second), std::vector<Bytes>{second});
    EXPECT_EQ(left.counts().of(LiveEvent::tooLong), 1U);
    EXPECT_EQ(left.counts().of(LiveEvent::sent), 1U);
}

TEST_F(PacketPortTest, AJumboFrameFitsTheRingOfAJumboInterface) {
    ip("link set left mtu 65535");
    ip("link set right mtu 65535");
    const std::vector<Bytes> frames{toRight({ethMpls}, 1, 9000),
                                    toRight({ethVlan, 5, ethMpls}, 2, 65535)};
    EXPECT_EQ(passed(PacketIntake::labelled, frames), frames);
}

} // namespace PacketPortTest
