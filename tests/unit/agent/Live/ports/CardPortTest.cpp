#include "Live/ports/CardPort.h"

#include <array>
#include <deque>
#include <gtest/gtest.h>
#include <thread>

#include "FrameBytes.h"
#include "Live/ports/InterfaceControl.h"
#include "Live/ports/PacketPort.h"
#include "LiveTesting.h"

namespace CardPortTest {

namespace {

using namespace LiveTesting;
using namespace TestSupport::Raw;
using LiveTesting::Bytes;
using OvixAgent::CardPort;
using OvixAgent::LiveEvent;
using OvixAgent::PacketIntake;
using OvixAgent::PacketPort;

constexpr std::uint16_t ethArp = 0x0806;
constexpr Lumo::EthAddr station{2, 0, 0, 0, 0, leftStation};

/// What a card has received and is to send, in memory.
struct Wire {
    std::deque<Bytes> toCard;
    std::vector<Bytes> fromCard;
    std::size_t room = 1000; ///< frames that the card takes for sending
    std::uint64_t missed = 0;
    bool isLinkUp = true;
    std::size_t lent = 0;         ///< frames whose bytes were given up when they were sent
    std::vector<Wire*> workers{}; ///< what each of them has of the card
};

class MadeUpCard final : public OvixAgent::Card {
  public:
    explicit MadeUpCard(Wire& wire) : wire_(&wire) {}

    Lumo::EthAddr mac() const override { return station; }
    std::uint32_t mtu() const override { return 1400; }
    bool isLinkUp() override { return wire_->isLinkUp; }
    std::uint64_t missed() override { return wire_->missed; }

    std::size_t receive(std::span<OvixAgent::WritableFrame> room) override {
        lent_.clear();
        while (!wire_->toCard.empty() && lent_.size() < room.size()) {
            Bytes memory(OvixAgent::frameHeadroom);
            memory.insert(memory.end(), wire_->toCard.front().begin(), wire_->toCard.front().end());
            wire_->toCard.pop_front();
            lent_.push_back(std::move(memory));
            const auto size =
                static_cast<std::uint32_t>(lent_.back().size() - OvixAgent::frameHeadroom);
            OvixAgent::WritableFrame& frame = room[lent_.size() - 1];
            frame.bytes = lent_.back().data() + OvixAgent::frameHeadroom;
            frame.size = frame.originalLength = size;
            frame.headroom = OvixAgent::frameHeadroom;
        }
        return lent_.size();
    }

    bool queue(std::span<const std::uint8_t> bytes) override {
        if (queued_.size() == wire_->room) {
            return false;
        }
        queued_.emplace_back(bytes.begin(), bytes.end());
        return true;
    }

    std::size_t queueLent(std::span<const OvixAgent::Frame> frames) override {
        wire_->lent += frames.size();
        std::size_t queued = 0;
        for (const OvixAgent::Frame& frame : frames) {
            queued += queue(frame.bytes) ? 1 : 0;
        }
        return queued;
    }

    Sent flush() override {
        const std::size_t count = queued_.size();
        wire_->fromCard.insert(wire_->fromCard.end(), queued_.begin(), queued_.end());
        queued_.clear();
        return {count, 0};
    }

    std::unique_ptr<OvixAgent::Card> forWorker(std::uint32_t worker) override {
        return worker < wire_->workers.size()
                   ? std::make_unique<MadeUpCard>(*wire_->workers[worker])
                   : nullptr;
    }

  private:
    Wire* wire_;
    std::vector<Bytes> lent_;
    std::vector<Bytes> queued_;
};

class CardPortTest : public TestSupport::OwnNetwork {
  protected:
    void SetUp() override {
        OwnNetwork::SetUp();
        if (!IsSkipped() && !OvixAgent::TapPort(0, "probe").isOpen()) {
            GTEST_SKIP() << OvixAgent::TapPort(0, "probe").problem();
        }
        config_.name = "west";
        config_.routesIp = true;
    }

    CardPort& port() {
        if (!port_) {
            table_ =
                std::make_unique<OvixAgent::PortTable>(std::vector<OvixAgent::PortConfig>{config_});
            port_ = std::make_unique<CardPort>(0, table_->ports()[0],
                                               std::make_unique<MadeUpCard>(wire_),
                                               static_cast<std::uint32_t>(wire_.workers.size()));
            // The stack speaks IPv6 on a device that is up unless it is told not to.
            TestSupport::ip("link set west down addrgenmode none && ip link set west up");
            stack_ = std::make_unique<PacketPort>(0, "west", PacketIntake::everything);
        }
        return *port_;
    }

    /// The kernel takes up to a second to report a carrier.
    bool becomes(bool isUp) {
        const OvixAgent::InterfaceFlags flags;
        for (int tries = 0; tries < 5000; ++tries) {
            received();
            if (flags.isDown("west") != isUp) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }

    std::vector<Bytes> received() {
        std::vector<Bytes> all;
        port().receive(each([&all](const OvixAgent::Frame& frame) {
                           all.emplace_back(frame.bytes.begin(), frame.bytes.end());
                       }),
                       256);
        return all;
    }

    /// What the host gets of these frames: all until one that is sent last.
    std::vector<Bytes> hostGets(const std::vector<Bytes>& frames) {
        port();
        const Bytes last = toLeft({ethArp}, 999);
        wire_.toCard.insert(wire_.toCard.end(), frames.begin(), frames.end());
        wire_.toCard.push_back(last);
        agentGot_ = received();
        std::vector<Bytes> all = receiveUpTo(*stack_, last);
        EXPECT_FALSE(all.empty());
        all.pop_back();
        return all;
    }

    OvixAgent::PortConfig config_;
    Wire wire_;
    std::unique_ptr<OvixAgent::PortTable> table_;
    std::unique_ptr<CardPort> port_;
    std::unique_ptr<PacketPort> stack_;
    std::vector<Bytes> agentGot_;
};

Bytes ipv6To(std::uint8_t first, std::uint8_t second) {
    Bytes frame = toLeft({ethIpv6});
    frame[14] = 0x60;
    frame[14 + 24] = first;
    frame[14 + 25] = second;
    return frame;
}

} // namespace

TEST_F(CardPortTest, TheDeviceOfTheHostHasTheCardsMacMtuAndLink) {
    ASSERT_TRUE(port().isOpen()) << port().problem();
    EXPECT_EQ(OvixAgent::macOfInterface("west"), station);
    EXPECT_EQ(OvixAgent::mtuOfInterface("west"), 1400U);
    for (const bool isUp : {true, false, true}) {
        wire_.isLinkUp = isUp;
        EXPECT_TRUE(becomes(isUp));
    }
}

TEST_F(CardPortTest, TheDeviceKeepsTheCardsMacWhoeverChangesIt) {
    port();
    TestSupport::ip("link set west address 02:00:00:00:00:77");
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (OvixAgent::macOfInterface("west") != station && std::chrono::steady_clock::now() < end) {
        received();
    }
    EXPECT_EQ(OvixAgent::macOfInterface("west"), station);
}

TEST_F(CardPortTest, LabelledAndIpFramesAreTheAgentsAndTheRestTheHosts) {
    const Bytes labelled = toLeft({ethMpls}, 1);
    const Bytes ip = toLeft({ethIpv4}, 2);
    const Bytes taggedIp = toLeft({ethVlan, 5, ethIpv4}, 3);
    const Bytes arp = toLeft({ethArp}, 4);
    const Bytes taggedArp = toLeft({ethVlan, 5, ethArp}, 5);
    EXPECT_EQ(hostGets({labelled, ip, arp, taggedIp, taggedArp}),
              (std::vector<Bytes>{arp, taggedArp}));
    EXPECT_EQ(agentGot_, (std::vector<Bytes>{labelled, ip, taggedIp}));
}

TEST_F(CardPortTest, PacketsToGroupsAreForBothAndLinkLocalOnesForTheHost) {
    Bytes group = toLeft({ethIpv4}, 1);
    group[0] |= 1U;
    const Bytes linkLocal = ipv6To(0xfe, 0xbf);
    const Bytes global = ipv6To(0xfe, 0xc0);
    EXPECT_EQ(hostGets({group, linkLocal, global}), (std::vector<Bytes>{group, linkLocal}));
    EXPECT_EQ(agentGot_, (std::vector<Bytes>{group, global}));
}

TEST_F(CardPortTest, WithoutIpRoutingTheHostGetsPackets) {
    config_.routesIp = false;
    const Bytes ip = toLeft({ethIpv4}, 2);
    EXPECT_EQ(hostGets({ip}), std::vector<Bytes>{ip});
    EXPECT_EQ(agentGot_, std::vector<Bytes>{});
}

TEST_F(CardPortTest, AnAttachmentCircuitKeepsEverythingFromTheHost) {
    port().intakeIs(PacketIntake::everything);
    const Bytes arp = toLeft({ethArp}, 4);
    wire_.toCard = {arp};
    EXPECT_EQ(received(), std::vector<Bytes>{arp});
}

TEST_F(CardPortTest, WhatTheHostSendsLeavesByTheCard) {
    port();
    const Bytes sent = toRight({ethArp}, 6);
    send(*stack_, sent);
    EXPECT_TRUE(TestSupport::pollUntil([&] { return port().descriptor(); }, [&] { received(); },
                                       [&] {
                                           port().flush();
                                           return !wire_.fromCard.empty() &&
                                                  wire_.fromCard.back() == sent;
                                       }));
}

TEST_F(CardPortTest, FramesAreCountedAsReceivedSentMissedAndRefused) {
    port();
    wire_.toCard = {toLeft({ethMpls}, 1), toLeft({ethMpls}, 2), toLeft({ethArp}, 3)};
    received();
    wire_.room = 2;
    for (std::uint32_t i = 0; i < 3; ++i) {
        transmit(port(), toRight({ethMpls}, i));
    }
    port().flush();
    wire_.missed = 7;
    EXPECT_EQ(port().counts().of(LiveEvent::ringFull), 7U);
    EXPECT_EQ(port().counts().of(LiveEvent::ringFull), 7U);
    EXPECT_EQ(port().counts().of(LiveEvent::received), 2U);
    EXPECT_EQ(port().counts().of(LiveEvent::forHost), 1U);
    EXPECT_EQ(port().counts().of(LiveEvent::sent), 2U);
    EXPECT_EQ(port().counts().of(LiveEvent::noBuffers), 1U);
}

TEST_F(CardPortTest, AStoppedPortTakesWhatTheCardMayHoldAndNoMore) {
    port().stopIntake();
    wire_.toCard.assign(OvixAgent::Card::queueFrames + 3, toLeft({ethMpls}, 1));
    std::size_t taken = 0;
    for (int turns = 0; turns < 8; ++turns) {
        taken += received().size();
    }
    EXPECT_EQ(taken, OvixAgent::Card::queueFrames);
}

TEST_F(CardPortTest, ADeviceThatWasRemovedComesBackAsItWas) {
    port();
    stack_.reset();
    TestSupport::ip("link del west");
    received(); // notices it
    EXPECT_FALSE(port().isOpen());
    EXPECT_TRUE(port().reopen()) << port().problem();
    EXPECT_EQ(OvixAgent::macOfInterface("west"), station);
    EXPECT_EQ(OvixAgent::mtuOfInterface("west"), 1400U);
}

TEST_F(CardPortTest, BurstsGiveTheirBytesUpAndSingleFramesAreCopied) {
    const Bytes bytes = toRight({ethMpls}, 7);
    OvixAgent::Frame frame;
    frame.bytes = bytes;
    const std::array burst{frame, frame, frame};
    port().transmit(frame);
    EXPECT_EQ(wire_.lent, 0U);
    wire_.room = 3;
    port().transmitBurst(burst);
    port().flush();
    EXPECT_EQ(wire_.lent, 3U);
    EXPECT_EQ(wire_.fromCard, std::vector<Bytes>(3, bytes));
    EXPECT_EQ(port().counts().of(LiveEvent::noBuffers), 1U);
}

TEST_F(CardPortTest, ForWorkersThereIsAnObjectEach) {
    Wire wire;
    wire_.workers = {&wire};
    EXPECT_FALSE(port().isPolled());
    EXPECT_TRUE(port().queue(0)->isPolled());
    EXPECT_EQ(port().queue(1), nullptr);
    wire_.toCard = {toLeft({ethMpls}, 99)};
    EXPECT_TRUE(received().empty()) << "the object that has the device has taken frames";
}

TEST_F(CardPortTest, WorkersReceiveByTheCardAndGiveTheHostItsFrames) {
    std::array<Wire, 2> wires;
    wire_.workers = {&wires[0], &wires[1]};
    const std::array queues{port().queue(0), port().queue(1)};
    received(); // the object that has the device says what the others take
    for (std::uint32_t i = 0; i < 2; ++i) {
        const auto& queue = queues[i];
        const Bytes own = toLeft({ethIpv4}, i);
        const Bytes arp = toLeft({ethArp}, i);
        wires[i].toCard = {own, arp};
        std::vector<Bytes> got;
        queue->receive(each([&](const OvixAgent::Frame& frame) {
                           got.emplace_back(frame.bytes.begin(), frame.bytes.end());
                       }),
                       64);
        EXPECT_EQ(got, std::vector<Bytes>{own});
        EXPECT_EQ(receiveUpTo(*stack_, arp), std::vector<Bytes>{arp});
    }
}

TEST_F(CardPortTest, WorkersSendByTheCard) {
    std::array<Wire, 2> wires;
    wire_.workers = {&wires[0], &wires[1]};
    for (std::uint32_t i = 0; i < 2; ++i) {
        const auto queue = port().queue(i);
        send(*queue, toRight({ethMpls}, i));
        EXPECT_EQ(wires[i].fromCard, std::vector<Bytes>{toRight({ethMpls}, i)});
        EXPECT_EQ(queue->counts().of(LiveEvent::sent), 1U);
    }
}

TEST_F(CardPortTest, WorkersTakeEverythingOfAnAttachmentCircuit) {
    Wire wire;
    wire_.workers = {&wire};
    const auto queue = port().queue(0);
    port().intakeIs(PacketIntake::everything);
    wire.toCard = {toLeft({ethArp}, 5)};
    std::size_t taken = 0;
    queue->receive(each([&](const auto&) { ++taken; }), 64);
    EXPECT_EQ(taken, 1U);
}

TEST_F(CardPortTest, WithWorkersWhatTheHostSendsLeavesByTheObjectThatHasTheDevice) {
    Wire wire;
    wire_.workers = {&wire};
    port();
    const Bytes sent = toRight({ethArp}, 6);
    send(*stack_, sent);
    EXPECT_TRUE(TestSupport::pollUntil([&] { return port().descriptor(); }, [&] { received(); },
                                       [&] {
                                           port().flush();
                                           return !wire_.fromCard.empty() &&
                                                  wire_.fromCard.back() == sent;
                                       }));
    wire_.isLinkUp = false;
    EXPECT_TRUE(becomes(false));
}

} // namespace CardPortTest
