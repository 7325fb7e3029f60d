#include <gtest/gtest.h>
#include <optional>

#include "FrameBytes.h"
#include "Live/ports/PacketPort.h"
#include "Live/ports/XdpPort.h"
#include "QueuesTesting.h"

namespace XdpQueuesTest {

namespace {

using namespace LiveTesting;
using namespace TestSupport::Raw;
using LiveTesting::Bytes;
using OvixAgent::LiveEvent;
using OvixAgent::PacketIntake;
using OvixAgent::PacketPort;
using OvixAgent::XdpPort;
using TestSupport::ip;

constexpr std::uint32_t vlans = 200;

/// Both ends of the link have four queues. The left chooses one by the VLAN, among others.
class XdpQueuesTest : public TestSupport::OwnNetwork {
  protected:
    void SetUp() override {
        OwnNetwork::SetUp();
        if (IsSkipped()) {
            return;
        }
        addWideLinks();
        left.emplace(0, "left", PacketIntake::labelled);
        if (const XdpPort probe(1, "right"); !probe.isOpen()) {
            GTEST_SKIP() << probe.problem();
        }
    }
    static void addWideLinks() {
        ip("link del left 2>/dev/null; ip link add left address 02:00:00:00:00:01 numtxqueues 4 "
           "numrxqueues 4 type veth peer name right address 02:00:00:00:00:02 numtxqueues 4 "
           "numrxqueues 4");
        for (const std::string side : {"left", "right"}) {
            ip("link set " + side + " addrgenmode none up");
        }
        awaitOperation("left");
        awaitOperation("right");
    }
    void openRight(std::uint32_t queues) {
        right.reset();
        right.emplace(std::make_unique<XdpPort>(1, "right", queues), queues);
        ASSERT_TRUE(right->port->isOpen()) << right->port->problem();
        for (const auto& queue : right->queues) {
            ASSERT_TRUE(queue->isOpen()) << queue->problem();
        }
    }
    static std::vector<Bytes> frames() {
        std::vector<Bytes> all;
        for (std::uint32_t i = 0; i < vlans; ++i) {
            all.push_back(toRight({ethVlan, static_cast<std::uint16_t>(i + 1), ethMpls}, i));
        }
        return all;
    }
    void sendAll() {
        for (const Bytes& frame : frames()) {
            transmit(*left, frame);
        }
        left->flush();
    }
    /// Each frame comes to one queue, once.
    void passAll() {
        right->came.clear();
        sendAll();
        right->receive(vlans);
        std::vector<Bytes> all;
        for (const auto& some : right->came) {
            all.insert(all.end(), some.begin(), some.end());
        }
        std::sort(all.begin(), all.end());
        EXPECT_EQ(all.size(), vlans);
        EXPECT_TRUE(all == frames());
    }

    std::optional<PacketPort> left;
    std::optional<QueuedPort> right;
};

} // namespace

TEST_F(XdpQueuesTest, OneThreadServesAllQueuesOfTheInterface) {
    XdpPort whole(1, "right");
    ASSERT_TRUE(whole.isOpen()) << whole.problem();
    EXPECT_EQ(whole.ringFrames(), 4U * OvixAgent::XdpSocket::buffers);
    sendAll();
    std::vector<Bytes> came;
    const auto keep = [&](const OvixAgent::Frame& frame) {
        came.emplace_back(frame.bytes.begin(), frame.bytes.end());
    };
    EXPECT_TRUE(TestSupport::pollUntil([&] { return whole.descriptor(); },
                                       [&] { EXPECT_LE(whole.receive(each(keep), 30), 30U); },
                                       [&] { return came.size() == vlans; }));
    EXPECT_NE(came, frames()) << "all came by one queue";
    std::sort(came.begin(), came.end());
    EXPECT_EQ(came, frames());
    send(whole, toLeft({ethMpls}, 1));
    EXPECT_EQ(receiveUpTo(*left, toLeft({ethMpls}, 1)).size(), 1U);
}

TEST_F(XdpQueuesTest, ThreadsShareTheQueuesOfTheInterface) {
    for (const std::uint32_t queues : {4U, 3U, 1U}) {
        openRight(queues);
        passAll();
        for (const std::size_t share : right->shares()) {
            EXPECT_GT(share, 0U) << testing::PrintToString(right->shares());
        }
        EXPECT_EQ(right->queues[0]->ringFrames(),
                  (4U + queues - 1) / queues * OvixAgent::XdpSocket::buffers);
    }
}

TEST_F(XdpQueuesTest, EveryThreadSends) {
    openRight(4);
    for (std::uint32_t i = 0; i < 4; ++i) {
        send(*right->queues[i], toLeft({ethMpls}, i));
        EXPECT_EQ(right->queues[i]->counts().of(LiveEvent::sent), 1U);
    }
    send(*right->port, toLeft({ethMpls}, 4));
    EXPECT_EQ(right->port->counts().of(LiveEvent::sent), 1U);
    EXPECT_EQ(receiveUpTo(*left, toLeft({ethMpls}, 4)).size(), 5U);
    right->port->intakeIs(PacketIntake::everything);
    EXPECT_EQ(right->port->warning(), "");
    send(*right->port, toLeft({ethMpls}, 5)); // past the guard
    EXPECT_EQ(receiveUpTo(*left, toLeft({ethMpls}, 5)).size(), 1U);
}

TEST_F(XdpQueuesTest, FewerQueuesThanThreadsAreAProblem) {
    EXPECT_EQ(XdpPort(1, "right", 5).problem(),
              "right: has 4 receive queues for 5 workers: more of them (ethtool -L right combined "
              "5) or fewer workers are needed");
}

TEST_F(XdpQueuesTest, QueuesFollowThePortToTheInterfacesSuccessor) {
    openRight(2);
    ip("link del right");
    right->look();
    right->port->receive(each([](const auto&) {}), 1);
    EXPECT_FALSE(right->port->isOpen());
    right->look();
    EXPECT_FALSE(right->queues[0]->isOpen());
    EXPECT_EQ(right->queues[0]->descriptor(), -1);
    addWideLinks();
    EXPECT_TRUE(right->port->reopen()) << right->port->problem();
    EXPECT_TRUE(left->reopen());
    right->look();
    passAll();
}

TEST_F(XdpQueuesTest, AfterTheStopTheStackReceivesWhatComes) {
    openRight(2);
    PacketPort stack(1, "right", PacketIntake::labelled);
    send(*left, toRight({ethMpls}, 1));
    right->port->stopIntake();
    send(*left, toRight({ethMpls}, 2));
    EXPECT_EQ(receiveUpTo(stack, toRight({ethMpls}, 2)).size(), 1U);
    right->receive(1);
    EXPECT_EQ(right->total(), 1U);
}

} // namespace XdpQueuesTest
