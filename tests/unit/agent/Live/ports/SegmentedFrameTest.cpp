#include "Live/ports/SegmentedFrame.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>

#include "MergedFrame.h"

namespace SegmentedFrameTest {

namespace {

using namespace LiveTesting;
using namespace TestSupport::Raw;
using OvixAgent::OffloadedWork;
using OvixAgent::readSegmentedFrame;

/// Makes a frame, and what is said of it, one that cannot be cut.
struct Refusal {
    std::string name;
    std::function<void(Bytes&, OffloadedWork&)> spoil;
    MergedFrame merged{};
};

std::ostream& operator<<(std::ostream& out, const Refusal& each) {
    return out << each.name;
}

constexpr std::size_t ip = 14;
constexpr std::size_t tcp = ip + 20;

/// Sets a byte of the IPv4 header.
std::function<void(Bytes&, OffloadedWork&)> ipv4Byte(std::size_t at, std::uint8_t value) {
    return [at, value](Bytes& frame, OffloadedWork&) {
        frame[ip + at] = value;
        setIpv4Checksum(frame, ip);
    };
}

std::function<void(Bytes&, OffloadedWork&)> byte(std::size_t at, std::uint8_t value) {
    return [at, value](Bytes& frame, OffloadedWork&) { frame[at] = value; };
}

std::function<void(Bytes&, OffloadedWork&)> kind(std::uint8_t value) {
    return [value](Bytes&, OffloadedWork& work) { work.segmentation = value; };
}

MergedFrame ipv6(std::size_t payload = 3000) {
    return {.link = eth(ethIpv6), .isIpv4 = false, .payload = payload, .segmentation = tcpOverIpv6};
}

MergedFrame labelled() {
    return {.link = join({eth(ethMpls), stack({{100}})})};
}

const std::vector<Refusal> refusals{
    {"segments of no size", [](Bytes&, OffloadedWork& work) { work.segmentSize = 0; }},
    {"fragments of UDP", kind(3), {.isTcp = false}},
    {"an unknown kind", kind(2)},
    {"CWR of UDP", kind(udpOverIp | withCwr), {.isTcp = false}},
    {"TCP over IPv6 that is IPv4", kind(tcpOverIpv6)},
    {"TCP over IPv4 that is IPv6", kind(tcpOverIpv4), ipv6()},
    {"UDP that is TCP", kind(udpOverIp)},
    {"TCP that is UDP", kind(tcpOverIpv4), {.isTcp = false}},
    {"a tunnel", ipv4Byte(9, 4)},
    {"a checksum that starts elsewhere", [](Bytes&, OffloadedWork& work) { ++work.checksumStart; }},
    {"neither IP nor labels", byte(13, 6)},
    {"version 5", ipv4Byte(0, 0x55)},
    {"an IPv4 header that is too short", ipv4Byte(0, 0x44)},
    {"a wrong IPv4 checksum", byte(ip + 10, 0)},
    {"IPv4 longer than the frame", ipv4Byte(2, 0xff)},
    {"IPv4 without a length",
     [](Bytes& frame, auto&) {
         frame[ip + 2] = frame[ip + 3] = 0;
         setIpv4Checksum(frame, ip);
     }},
    {"a first fragment", ipv4Byte(6, 0x20)},
    {"a later fragment", ipv4Byte(7, 1)},
    {"a TCP header that is too short", byte(tcp + 12, 0x40)},
    {"a TCP header longer than the packet", byte(tcp + 12, 0xf0), {.payload = 39}},
    {"IPv6 longer than the frame", byte(ip + 4, 0xff), ipv6()},
    {"IPv6 extension headers", byte(ip + 6, 0), ipv6()},
    {"an IPv6 fragment", byte(ip + 6, 44), ipv6()},
    {"a jumbogram", [](Bytes& frame, auto&) { frame[ip + 4] = frame[ip + 5] = 0; }, ipv6(65536)},
    {"Ethernet behind labels", byte(14 + 4, 0x02), labelled()},
    {"labels without a bottom",
     [](Bytes& frame, auto&) {
         for (std::size_t at = 14; at + 4 <= frame.size(); at += 4) {
             frame[at + 2] = 0;
         }
     },
     labelled()},
};

class FrameThatCannotBeCut : public testing::TestWithParam<Refusal> {};

INSTANTIATE_TEST_SUITE_P(All, FrameThatCannotBeCut, testing::ValuesIn(refusals));

} // namespace

TEST_P(FrameThatCannotBeCut, IsRefused) {
    const Refusal& refusal = GetParam();
    Bytes frame = refusal.merged.whole();
    OffloadedWork work = refusal.merged.work();
    refusal.spoil(frame, work);
    EXPECT_FALSE(readSegmentedFrame(frame, work).has_value());
}

TEST(SegmentedFrame, ReportsTheOffsets) {
    const MergedFrame merged{.link = join({eth(ethVlan), tag(5, ethMpls), stack({{100}, {200}})}),
                             .tcpOptions = 12};
    const auto found = readSegmentedFrame(merged.whole(), merged.work());
    ASSERT_TRUE(found.has_value());
    EXPECT_TRUE(found->isIpv4);
    EXPECT_TRUE(found->isTcp);
    EXPECT_EQ(found->network, 26U);
    EXPECT_EQ(found->transport, 46U);
    EXPECT_EQ(found->payload, 78U);
    EXPECT_EQ(found->end, 3078U);
    EXPECT_EQ(found->segmentSize, 1000U);
}

TEST(SegmentedFrame, RefusesEveryTruncatedFrame) {
    const std::vector<MergedFrame> all{{.payload = 50},
                                       ipv6(50),
                                       {.isTcp = false, .payload = 50, .segmentation = udpOverIp},
                                       labelled()};
    for (const MergedFrame& merged : all) {
        const Bytes whole = merged.whole();
        ASSERT_TRUE(readSegmentedFrame(whole, merged.work()).has_value());
        for (std::size_t size = 0; size < whole.size(); ++size) {
            const Bytes part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_FALSE(readSegmentedFrame(part, merged.work()).has_value()) << size;
        }
    }
}

} // namespace SegmentedFrameTest
