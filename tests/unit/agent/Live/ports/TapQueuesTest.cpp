#include "Live/ports/TapQueues.h"

#include <gtest/gtest.h>
#include <net/if.h>
#include <optional>

#include "FrameBytes.h"
#include "Live/ports/PacketPort.h"
#include "Live/ports/TapPort.h"
#include "QueuesTesting.h"

namespace TapQueuesTest {

namespace {

using namespace LiveTesting;
using namespace TestSupport::Raw;
using LiveTesting::Bytes;
using OvixAgent::LiveEvent;
using OvixAgent::PacketIntake;
using OvixAgent::PacketPort;
using OvixAgent::TapPort;
using TestSupport::ip;

constexpr std::uint32_t queues = 4;
constexpr std::uint32_t flows = 1000;

class TapQueuesTest : public TestSupport::OwnNetwork {
  protected:
    void SetUp() override {
        OwnNetwork::SetUp();
        if (!IsSkipped() && !TapPort(0, "probe").isOpen()) {
            GTEST_SKIP() << TapPort(0, "probe").problem();
        }
    }
    void open() {
        tap.emplace(std::make_unique<TapPort>(3, "tap", std::nullopt, queues), queues);
        ASSERT_TRUE(tap->port->isOpen()) << tap->port->problem();
        openStack();
    }
    /// What this host sends on the device, which is quiet by itself.
    void openStack() {
        ip("link set tap down addrgenmode none && ip link set tap up");
        stack.emplace(0, "tap", PacketIntake::everything);
    }
    /// Each frame comes to one queue, once. Returns the number of queues used.
    std::size_t pass(const std::vector<Bytes>& frames) {
        tap->look();
        tap->came.clear();
        for (const Bytes& frame : frames) {
            transmit(*stack, frame);
        }
        stack->flush();
        tap->receive(frames.size());
        EXPECT_EQ(tap->total(), frames.size());
        const auto shares = tap->shares();
        return queues - static_cast<std::size_t>(std::count(shares.begin(), shares.end(), 0U));
    }

    std::optional<QueuedPort> tap;
    std::optional<PacketPort> stack;
};

template <typename Make>
std::vector<Bytes> eachFlow(Make rest, std::initializer_list<std::uint16_t> fields = {ethMpls}) {
    std::vector<Bytes> all;
    for (std::uint32_t i = 0; i < flows; ++i) {
        all.push_back(join({toLeft(fields), rest(i)}));
        all.back().erase(all.back().begin() + static_cast<std::ptrdiff_t>(12 + 2 * fields.size()),
                         all.back().begin() + static_cast<std::ptrdiff_t>(62 + 2 * fields.size()));
    }
    return all;
}

Bytes udpPacket(std::uint32_t destination) {
    return ipv4({.destination = destination}, udp());
}

} // namespace

TEST_F(TapQueuesTest, FlowsSpreadByLabelsAndInnerHeaders) {
    open();
    EXPECT_EQ(tap->port->warning(), "");
    pass(eachFlow([](std::uint32_t i) {
        return join({TestSupport::Raw::stack({{100}}), udpPacket(i)});
    }));
    EXPECT_TRUE(isEven(*tap));
    pass(eachFlow([](std::uint32_t i) {
        return join({TestSupport::Raw::stack({{100}, {1000 + i}}), filled(40, 0)});
    }));
    EXPECT_TRUE(isEven(*tap));
    pass(eachFlow(
        [](std::uint32_t i) {
            return join({TestSupport::Raw::stack({{100}}), ipv6({.flowLabel = i + 1}, udp())});
        },
        {ethVlan, 5, ethMpls}));
    EXPECT_TRUE(isEven(*tap));
    pass(eachFlow(udpPacket, {ethIpv4}));
    EXPECT_TRUE(isEven(*tap));
}

TEST_F(TapQueuesTest, AFlowStaysWithItsQueueWhereverTheAgentSends) {
    open();
    for (std::uint32_t flow = 0; flow < 8; ++flow) {
        std::vector<Bytes> frames;
        for (std::uint8_t i = 0; i < 8; ++i) {
            const Bytes packet = ipv4({.destination = flow, .ttl = i, .tos = i, .ident = i}, udp());
            frames.push_back(join(
                {toLeft({ethMpls}), TestSupport::Raw::stack({{100, i, i}, {200, i}}), packet}));
            frames.back().erase(frames.back().begin() + 14, frames.back().begin() + 64);
        }
        EXPECT_EQ(pass(frames), 1U);
        const std::vector<std::size_t> before = tap->shares();
        for (const auto& queue : tap->queues) {
            send(*queue, frames.front());
        }
        pass(frames);
        EXPECT_EQ(tap->shares(), before);
    }
}

TEST_F(TapQueuesTest, EveryThreadSends) {
    open();
    for (std::uint32_t i = 0; i < queues; ++i) {
        send(*tap->queues[i], toRight({ethMpls}, i));
        EXPECT_EQ(tap->queues[i]->counts().of(LiveEvent::sent), 1U);
    }
    send(*tap->port, toRight({ethMpls}, queues));
    EXPECT_EQ(receiveUpTo(*stack, toRight({ethMpls}, queues)).size(), queues + 1U);
}

TEST_F(TapQueuesTest, QueuesCloseWithThePortsDevice) {
    open();
    ip("link del tap");
    tap->port->receive(each([](const auto&) {}), 1);
    EXPECT_EQ(tap->port->problem(), "tap: the device was removed");
    tap->look();
    for (const auto& queue : tap->queues) {
        EXPECT_FALSE(queue->isOpen());
        EXPECT_EQ(queue->descriptor(), -1);
    }
}

TEST_F(TapQueuesTest, QueuesFollowThePortToTheNextDevice) {
    open();
    ip("link del tap");
    tap->port->receive(each([](const auto&) {}), 1);
    tap->look();
    EXPECT_TRUE(tap->port->reopen()) << tap->port->problem();
    tap->look();
    openStack();
    pass(eachFlow([](std::uint32_t i) {
        return join({TestSupport::Raw::stack({{100}}), udpPacket(i)});
    }));
    EXPECT_TRUE(isEven(*tap));
}

TEST_F(TapQueuesTest, TheDeviceGoesWithTheLastObject) {
    open();
    stack.reset();
    tap->port.reset();
    EXPECT_NE(if_nametoindex("tap"), 0U);
    tap.reset();
    EXPECT_EQ(if_nametoindex("tap"), 0U);
}

TEST_F(TapQueuesTest, ADeviceMadeForOneQueueIsAProblemThatSaysWhatHelps) {
    ip("tuntap add dev plain mode tap");
    EXPECT_EQ(TapPort(3, "plain", std::nullopt, 2).problem(),
              "plain: using the TAP device by several queues (ip tuntap add mode tap multi_queue "
              "makes one of them): Invalid argument");
    ip("tuntap add dev several mode tap multi_queue");
    const TapPort several(3, "several", std::nullopt, 2);
    EXPECT_TRUE(several.isOpen()) << several.problem();
}

} // namespace TapQueuesTest
