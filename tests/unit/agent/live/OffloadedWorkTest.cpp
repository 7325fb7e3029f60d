#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>

#include "FileDescriptor.h"
#include "FrameBytes.h"
#include "LiveTesting.h"
#include "OffloadedChecksum.h"
#include "PacketPort.h"

namespace {

using namespace LiveTesting;
using namespace TestSupport::Wire;
using OvixAgent::FileDescriptor;
using OvixAgent::LiveEvent;
using OvixAgent::PacketIntake;
using OvixAgent::PacketPort;
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
            sender = FileDescriptor(socket(AF_INET, SOCK_DGRAM, 0));
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

    FileDescriptor sender;
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
        ASSERT_TRUE(TestSupport::pollUntil([&] { return right.descriptor(); },
                                           [&] {
                                               right.receive(
                                                   [&](const OvixAgent::Frame& frame) {
                                                       received.assign(frame.bytes.begin(),
                                                                       frame.bytes.end());
                                                   },
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

TEST_F(OffloadedWorkTest, SeveralSegmentsInOneFrameAreCountedAndDropped) {
    PacketPort right(1, "right", PacketIntake::labelledAndIp);
    const int segment = 1000;
    if (setsockopt(sender.value(), IPPROTO_UDP, UDP_SEGMENT, &segment, sizeof segment) != 0) {
        GTEST_SKIP() << "no segmentation of datagrams in this kernel";
    }
    ASSERT_EQ(sendDatagram(Bytes(5000, 1)), 5000);
    const Bytes last = toRight({ethMpls});
    PacketPort left(0, "left", PacketIntake::labelled);
    send(left, last);
    EXPECT_EQ(receiveUpTo(right, last), std::vector<Bytes>{last});
    EXPECT_EQ(right.counts().of(LiveEvent::unsegmented) + right.counts().of(LiveEvent::ringFull),
              1U);
}

struct ChecksumCase {
    Bytes frame;
    std::size_t start;
    std::size_t offset;
    bool isDone;
    Bytes expected;
};

TEST(OffloadedChecksum, IsTheComplementOfTheSumFromWhereItStarts) {
    const std::vector<ChecksumCase> cases{
        {{9, 9, 0, 0, 0x12, 0x34}, 2, 0, true, {9, 9, 0xed, 0xcb, 0x12, 0x34}},
        {{0, 0, 0x12}, 0, 0, true, {0xed, 0xff, 0x12}},
        {{0xff, 0xff, 0, 0}, 0, 2, true, {0xff, 0xff, 0xff, 0xff}},
        {{0xff, 0xff, 0xff, 0xfe}, 0, 0, true, {0x00, 0x01, 0xff, 0xfe}},
        {{1, 2, 3}, 0, 2, false, {1, 2, 3}},
        {{1, 2, 3}, 4, 0, false, {1, 2, 3}},
        {{1, 2, 3}, 3, 0, false, {1, 2, 3}},
        {{}, 0, 0, false, {}},
    };
    for (const ChecksumCase& each : cases) {
        Bytes frame = each.frame;
        EXPECT_EQ(OvixAgent::completeChecksum(frame, each.start, each.offset), each.isDone);
        EXPECT_EQ(frame, each.expected);
    }
}
