#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>

#include "FrameBytes.h"
#include "Live/ports/PacketPort.h"
#include "LiveTesting.h"
#include "MergedFrame.h"
#include "Posix/FileDescriptor.h"

namespace OffloadedWorkTest {

namespace {

using namespace LiveTesting;
using namespace TestSupport::Raw;
using OvixAgent::LiveEvent;
using OvixAgent::PacketIntake;
using OvixAgent::PacketPort;
using Posix::FileDescriptor;
using TestSupport::ip;

constexpr std::uint16_t port = 4789;

/// The left end has an address, and its stack sends from there to one on the right.
class OffloadedWorkTest : public TestSupport::OwnNetwork {
  protected:
    void SetUp() override {
        OwnNetwork::SetUp();
        if (!IsSkipped()) {
            ip("address add 192.0.2.1/24 dev left");
            ip("neigh add 192.0.2.2 lladdr 02:00:00:00:00:02 dev left nud permanent");
            sender = Posix::FileDescriptor(socket(AF_INET, SOCK_DGRAM, 0));
        }
    }

    ssize_t sendDatagram(const Bytes& payload) const {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        inet_pton(AF_INET, "192.0.2.2", &to.sin_addr);
        return sendto(sender.value(), payload.data(), payload.size(), 0,
                      reinterpret_cast<const sockaddr*>(&to), sizeof to);
    }

    Posix::FileDescriptor sender;
};

/// The ones' complement sum, with the final fold.
std::uint32_t sumOf(const Bytes& bytes) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        sum += i % 2 == 0 ? std::uint32_t{bytes[i]} << 8U : bytes[i];
    }
    while (sum > 0xffff) {
        sum = (sum & 0xffffU) + (sum >> 16U);
    }
    return sum;
}

} // namespace

TEST_F(OffloadedWorkTest, AChecksumThatTheHostsStackLeftToTheHardwareIsCompleted) {
    PacketPort right(1, "right", PacketIntake::labelledAndIp);
    for (const std::size_t size : {100U, 101U}) {
        const Bytes payload(size, 0x5a);
        ASSERT_EQ(sendDatagram(payload), static_cast<ssize_t>(size));
        Bytes received;
        ASSERT_TRUE(TestSupport::pollUntil(
            [&] { return right.descriptor(); },
            [&] {
                right.receive(each([&](const OvixAgent::Frame& frame) {
                                  received.assign(frame.bytes.begin(), frame.bytes.end());
                              }),
                              1);
            },
            [&] { return !received.empty(); }));
        constexpr std::size_t addresses = 14 + 12;
        Bytes checked(received.begin() + addresses, received.end());
        const auto udpSize = static_cast<std::uint32_t>(checked.size() - 8);
        ASSERT_EQ(udpSize, size + 8);
        checked = join({checked, Bytes(size % 2, 0), u16(IPPROTO_UDP), u16(udpSize)});
        EXPECT_EQ(sumOf(checked), 0xffffU) << size;
    }
}

TEST_F(OffloadedWorkTest, DatagramsThatTheHostsStackHasLeftInOneFrameArriveOneByOne) {
    PacketPort right(1, "right", PacketIntake::labelledAndIp);
    const int segment = 1000;
    if (setsockopt(sender.value(), IPPROTO_UDP, UDP_SEGMENT, &segment, sizeof segment) != 0) {
        GTEST_SKIP() << "no segmentation of datagrams in this kernel";
    }
    ASSERT_EQ(sendDatagram(Bytes(5500, 1)), 5500);
    std::vector<std::size_t> sizes;
    const auto look = [&](const OvixAgent::Frame& frame) { sizes.push_back(frame.bytes.size()); };
    EXPECT_TRUE(TestSupport::pollUntil([&] { return right.descriptor(); },
                                       [&] { EXPECT_LE(right.receive(each(look), 2), 2U); },
                                       [&] { return sizes.size() == 6; }));
    EXPECT_EQ(sizes, (std::vector<std::size_t>{1042, 1042, 1042, 1042, 1042, 542}));
    EXPECT_EQ(right.counts().of(LiveEvent::received), 6U);
}

/// As a sender on the host would: the frame whole, with what is left to be done in front of it.
class UncutFramesTest : public TestSupport::OwnNetwork {
  protected:
    void SetUp() override {
        OwnNetwork::SetUp();
        if (IsSkipped()) {
            return;
        }
        sender = Posix::FileDescriptor(socket(AF_PACKET, SOCK_RAW, 0));
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_ifindex = static_cast<int>(if_nametoindex("left"));
        const int on = 1;
        if (setsockopt(sender.value(), SOL_PACKET, PACKET_VNET_HDR, &on, sizeof on) != 0 ||
            bind(sender.value(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
                0) {
            GTEST_SKIP() << std::strerror(errno);
        }
    }

    void sendUncut(const Bytes& frame, const OvixAgent::OffloadedWork& work) const {
        Bytes bytes(sizeof work);
        std::memcpy(bytes.data(), &work, sizeof work);
        bytes = join({bytes, frame});
        ASSERT_EQ(::send(sender.value(), bytes.data(), bytes.size(), 0),
                  static_cast<ssize_t>(bytes.size()))
            << std::strerror(errno);
    }

    /// What the port on the right receives of it.
    static std::vector<Bytes> received(PacketPort& right) {
        const Bytes last = toRight({ethMpls}, 0xfffffff0);
        PacketPort left(0, "left", PacketIntake::labelled);
        send(left, last);
        std::vector<Bytes> all = receiveUpTo(right, last);
        EXPECT_FALSE(all.empty());
        if (!all.empty()) {
            all.pop_back();
        }
        return all;
    }

    Posix::FileDescriptor sender;
};

TEST_F(UncutFramesTest, ArriveAsAWireWouldCarryThem) {
    const Bytes stations{2, 0, 0, 0, 0, rightStation, 2, 0, 0, 0, 0, leftStation};
    const Bytes behindTag = join({stations, u16(ethVlan), tag(5, ethIpv4)});
    const std::vector<MergedFrame> all{
        {.link = join({stations, u16(ethIpv4)})},
        {.link = join({stations, u16(ethIpv4)}), .payload = 65000, .segmentSize = 1448},
        {.link = join({stations, u16(ethIpv6)}), .isIpv4 = false, .segmentation = tcpOverIpv6},
        {.link = behindTag},
    };
    for (const MergedFrame& merged : all) {
        PacketPort right(1, "right", PacketIntake::labelledAndIp);
        sendUncut(merged.whole(), merged.work());
        EXPECT_EQ(received(right), merged.segments())
            << merged.link.size() << ' ' << merged.payload;
        EXPECT_EQ(right.counts().of(LiveEvent::unsegmented), 0U);
    }
}

TEST_F(UncutFramesTest, AreCountedAndDroppedWhenTheirHeadersDoNotFit) {
    PacketPort right(1, "right", PacketIntake::everything);
    const MergedFrame merged{.link = toRight({ethIpv4}, 0, 0)};
    Bytes frame = merged.whole();
    frame[merged.link.size() + 10] ^= 1; // the checksum of the header
    sendUncut(frame, merged.work());
    EXPECT_TRUE(received(right).empty());
    EXPECT_EQ(right.counts().of(LiveEvent::unsegmented), 1U);
}

TEST_F(UncutFramesTest, AreForgottenWithTheRingThatTheyAreIn) {
    PacketPort right(1, "right", PacketIntake::labelledAndIp);
    const MergedFrame merged{.link = toRight({ethIpv4}, 0, 0)};
    sendUncut(merged.whole(), merged.work());
    std::size_t seen = 0;
    const auto look = [&seen](const OvixAgent::Frame&) { ++seen; };
    EXPECT_TRUE(TestSupport::pollUntil([&] { return right.descriptor(); },
                                       [&] { right.receive(each(look), 1); },
                                       [&] { return seen == 1; }));
    EXPECT_TRUE(right.reopen());
    EXPECT_TRUE(received(right).empty());
}

} // namespace OffloadedWorkTest
