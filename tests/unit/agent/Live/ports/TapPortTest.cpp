#include "Live/ports/TapPort.h"

#include <gtest/gtest.h>
#include <net/if.h>

#include "FrameBytes.h"
#include "Live/ports/PacketPort.h"
#include "LiveTesting.h"

namespace TapPortTest {

namespace {

using namespace LiveTesting;
using OvixAgent::LiveEvent;
using OvixAgent::PacketIntake;
using OvixAgent::PacketPort;
using OvixAgent::TapPort;
using TestSupport::ip;
using TestSupport::Raw::ethMpls;

class TapPortTest : public TestSupport::OwnNetwork {
  protected:
    void SetUp() override {
        OwnNetwork::SetUp();
        if (!IsSkipped() && !TapPort(0, "probe").isOpen()) {
            GTEST_SKIP() << TapPort(0, "probe").problem();
        }
    }
};

void ignore(const OvixAgent::Frame&) {}

/// The stack speaks IPv6 on a device that is up unless it is told not to.
void makeQuiet(const std::string& device) {
    ip("link set " + device + " down addrgenmode none && ip link set " + device + " up");
}

} // namespace

TEST_F(TapPortTest, ExchangesFramesWithTheStack) {
    TapPort tap(3, "cpu");
    ASSERT_TRUE(tap.isOpen()) << tap.problem();
    makeQuiet("cpu");
    PacketPort stack(0, "cpu", PacketIntake::everything);
    const Bytes down = toRight({ethMpls}, 1, 1500);
    send(tap, down);
    EXPECT_EQ(receiveUpTo(stack, down), std::vector<Bytes>{down});
    const Bytes up = toLeft({TestSupport::Raw::ethVlan, 5, ethMpls}, 2);
    send(stack, up);
    const std::vector<Bytes> received = receiveUpTo(tap, up);
    ASSERT_FALSE(received.empty());
    EXPECT_EQ(received.back(), up);
    EXPECT_EQ(tap.counts().of(LiveEvent::sent), 1U);
    EXPECT_EQ(tap.counts().of(LiveEvent::received), received.size());
}

TEST_F(TapPortTest, ThousandsOfFramesComeInOrderWithinTheBudget) {
    TapPort tap(3, "cpu");
    ASSERT_TRUE(tap.isOpen()) << tap.problem();
    makeQuiet("cpu");
    PacketPort stack(0, "cpu", PacketIntake::everything);
    constexpr std::uint32_t perRound = 400; // less than the device's queue holds
    for (std::uint32_t round = 0; round < 5; ++round) {
        for (std::uint32_t i = 0; i < perRound; ++i) {
            transmit(stack, toLeft({ethMpls}, round * perRound + i));
        }
        stack.flush();
        std::uint32_t next = round * perRound;
        const auto look = [&next](const OvixAgent::Frame& frame) {
            const Bytes bytes(frame.bytes.begin(), frame.bytes.end());
            if (bytes == toLeft({ethMpls}, next)) {
                ++next;
            }
        };
        EXPECT_TRUE(TestSupport::pollUntil([&] { return tap.descriptor(); },
                                           [&] { EXPECT_LE(tap.receive(each(look), 7), 7U); },
                                           [&] { return next == (round + 1) * perRound; }));
    }
}

TEST_F(TapPortTest, ReopenKeepsAnExistingDevice) {
    TapPort tap(3, "cpu");
    const unsigned int device = if_nametoindex("cpu");
    ASSERT_NE(device, 0U);
    EXPECT_TRUE(tap.reopen());
    EXPECT_EQ(if_nametoindex("cpu"), device);
}

TEST_F(TapPortTest, ReopenCreatesADeletedDeviceAgain) {
    TapPort tap(3, "cpu");
    ASSERT_TRUE(tap.isOpen()) << tap.problem();
    ip("link del cpu");
    EXPECT_TRUE(TestSupport::pollUntil([&] { return tap.descriptor(); },
                                       [&] { tap.receive(each(ignore), 10); },
                                       [&] { return !tap.isOpen(); }));
    EXPECT_EQ(tap.problem(), "cpu: the device was removed");
    EXPECT_EQ(tap.descriptor(), -1);
    send(tap, toRight({ethMpls}));
    EXPECT_EQ(tap.counts().of(LiveEvent::interfaceGone), 2U);
    EXPECT_TRUE(tap.reopen());
    PacketPort stack(0, "cpu", PacketIntake::labelled);
    const Bytes frame = frameOf(leftStation, 0xff, {ethMpls});
    Bytes broadcast = frame;
    std::fill_n(broadcast.begin(), 6, std::uint8_t{0xff});
    send(tap, broadcast);
    EXPECT_EQ(receiveUpTo(stack, broadcast), std::vector<Bytes>{broadcast});
}

TEST_F(TapPortTest, ADeviceThatCannotBeAsItIsToBeIsNotMadeAgainAtOnce) {
    const auto indexOfNext = [] {
        const TapPort next(3, "next");
        return if_nametoindex("next");
    };
    TapPort tap(3, "cpu", TapPort::Likeness{{}, 1500}); // no station has that MAC
    ASSERT_FALSE(tap.isOpen());
    const unsigned int before = indexOfNext();
    EXPECT_FALSE(tap.reopen());
    EXPECT_EQ(indexOfNext(), before + 1);
    EXPECT_NE(tap.problem(), "");
}

TEST_F(TapPortTest, StaysOpenWhileTheDeviceIsDown) {
    TapPort tap(3, "cpu");
    ip("link set cpu down");
    send(tap, toRight({ethMpls}));
    EXPECT_EQ(tap.counts().of(LiveEvent::linkDown), 1U);
    EXPECT_TRUE(tap.isOpen());
}

TEST_F(TapPortTest, AnInterfaceThatIsNotATapDeviceIsAProblem) {
    TapPort tap(3, "left");
    EXPECT_FALSE(tap.isOpen());
    EXPECT_EQ(
        tap.problem(),
        "left: creating the TAP device (there is an interface of this name, which is none or is "
        "in use): Invalid argument");
    EXPECT_FALSE(TapPort(3, "").isOpen());
    EXPECT_FALSE(TapPort(3, "longer-than-any-interface").isOpen());
}

} // namespace TapPortTest
