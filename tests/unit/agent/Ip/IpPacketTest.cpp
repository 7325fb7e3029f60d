#include "Ip/IpPacket.h"

#include <gtest/gtest.h>

#include "FrameBytes.h"

namespace IpPacketTest {

using namespace OvixAgent;
using namespace TestSupport::Raw;
using Ovix::PktHdrType;

namespace {

/// The packet with bytes replaced from an offset on, and its IPv4 checksum made right again.
Bytes patched(Bytes packet, std::size_t at, const Bytes& with, bool mended = true) {
    std::copy(with.begin(), with.end(), packet.begin() + static_cast<std::ptrdiff_t>(at));
    if (mended) {
        packet[10] = packet[11] = 0;
        const std::size_t length = std::min<std::size_t>((packet[0] & 0x0fU) * 4U, packet.size());
        const auto checksum = static_cast<std::uint16_t>(~onesSum(std::span(packet).first(length)));
        packet[10] = static_cast<std::uint8_t>(checksum >> 8U);
        packet[11] = static_cast<std::uint8_t>(checksum);
    }
    return packet;
}

Bytes cut(const Bytes& packet, std::size_t size) {
    return Bytes(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(size));
}

Ipv4 withOptions() {
    Ipv4 fields;
    fields.options = filled(40, 1);
    return fields;
}

const Bytes four = ipv4({}, udp());
const Bytes longFour = ipv4(withOptions(), udp());
const Bytes six = ipv6({}, udp());

std::optional<IpUpperLayer> ofIpv6(std::uint8_t nextHeader, const Bytes& payload, Bytes& packet) {
    Ipv6 fields;
    fields.nextHeader = nextHeader;
    packet = ipv6(fields, payload);
    return IpPacket{PktHdrType::ipv6, packet}.upperLayer();
}

Bytes bytesOf(const IpUpperLayer& upper) {
    return {upper.bytes.begin(), upper.bytes.end()};
}

} // namespace

TEST(IpPacket, ReportsItsFault) {
    const struct {
        const char* what;
        PktHdrType type;
        Bytes bytes;
        std::size_t snapped;
        const char* fault;
    } cases[]{
        {"sound", PktHdrType::ipv4, four, 0, ""},
        {"sound with 40 bytes of options", PktHdrType::ipv4, longFour, 0, ""},
        {"nothing but a header", PktHdrType::ipv4, ipv4({}, {}), 0, ""},
        {"padded by the link", PktHdrType::ipv4, join({four, filled(18, 0)}), 0, ""},
        {"a capture that kept the header", PktHdrType::ipv4, cut(four, 20), 8, ""},
        {"no bytes", PktHdrType::ipv4, {}, 0, "IP header cut short"},
        {"one byte", PktHdrType::ipv4, cut(four, 1), 0, "IP header cut short"},
        {"19 bytes", PktHdrType::ipv4, cut(four, 19), 0, "IP header cut short"},
        {"19 bytes of a capture", PktHdrType::ipv4, cut(four, 19), 9, "IP header cut short"},
        {"a capture without its options", PktHdrType::ipv4, cut(longFour, 59), 9,
         "IP header cut short"},
        {"IPv6", PktHdrType::ipv4, six, 0, "IP version contradicts the packet type"},
        {"version 0", PktHdrType::ipv4, patched(four, 0, {0x05}), 0,
         "IP version contradicts the packet type"},
        {"a header of 16 bytes", PktHdrType::ipv4, patched(four, 0, {0x44}), 0,
         "IPv4 header length wrong"},
        {"a header of 0 bytes", PktHdrType::ipv4, patched(four, 0, {0x40}), 0,
         "IPv4 header length wrong"},
        {"a header longer than the packet", PktHdrType::ipv4, patched(four, 0, {0x4f}), 0,
         "IPv4 total length wrong"},
        {"a total length of 0", PktHdrType::ipv4, patched(four, 2, {0, 0}), 0,
         "IPv4 total length wrong"},
        {"a total length within the header", PktHdrType::ipv4, patched(four, 2, {0, 19}), 0,
         "IPv4 total length wrong"},
        {"a total length beyond the packet", PktHdrType::ipv4, patched(four, 2, {0, 29}), 0,
         "IPv4 total length wrong"},
        {"a total length beyond the capture's", PktHdrType::ipv4, patched(four, 2, {0, 30}), 1,
         "IPv4 total length wrong"},
        {"a total length that the capture left out", PktHdrType::ipv4, patched(four, 2, {0, 30}), 2,
         ""},
        {"a checksum one off", PktHdrType::ipv4,
         patched(four, 11, {static_cast<std::uint8_t>(four[11] + 1)}, false), 0,
         "IPv4 header checksum wrong"},
        {"a checksum of 0", PktHdrType::ipv4, patched(four, 10, {0, 0}, false), 0,
         "IPv4 header checksum wrong"},
        {"options changed", PktHdrType::ipv4, patched(longFour, 59, {0}, false), 0,
         "IPv4 header checksum wrong"},
        {"sound", PktHdrType::ipv6, six, 0, ""},
        {"padded by the link", PktHdrType::ipv6, join({six, filled(6, 0)}), 0, ""},
        {"a jumbogram's length", PktHdrType::ipv6, patched(six, 4, {0, 0}, false), 0, ""},
        {"no bytes", PktHdrType::ipv6, {}, 0, "IP header cut short"},
        {"39 bytes", PktHdrType::ipv6, cut(six, 39), 0, "IP header cut short"},
        {"IPv4", PktHdrType::ipv6, four, 0, "IP version contradicts the packet type"},
        {"a payload cut short", PktHdrType::ipv6, cut(six, 47), 0, "IPv6 payload cut short"},
        {"a payload that the capture left out", PktHdrType::ipv6, cut(six, 40), 8, ""},
        {"a payload cut short all the same", PktHdrType::ipv6, cut(six, 40), 7,
         "IPv6 payload cut short"},
    };
    for (const auto& given : cases) {
        EXPECT_EQ((IpPacket{given.type, given.bytes}.fault(given.snapped)), given.fault)
            << given.what;
    }
}

TEST(IpPacket, ReadsItsFields) {
    const IpPacket v4{PktHdrType::ipv4, four};
    EXPECT_EQ(v4.length(), 28U);
    EXPECT_EQ(v4.ttl(), 64);
    EXPECT_EQ(v4.source(), Lumo::IpGenAddr::fromText("10.1.0.1"));
    EXPECT_EQ(v4.destination(), Lumo::IpGenAddr::fromText("192.0.2.1"));
    const IpPacket v6{PktHdrType::ipv6, six};
    EXPECT_EQ(v6.length(), 48U);
    EXPECT_EQ(v6.ttl(), 64);
    EXPECT_EQ(v6.source(), Lumo::IpGenAddr::fromText("2001:db8::1"));
    EXPECT_EQ(v6.destination(), Lumo::IpGenAddr::fromText("2001:db8::2"));
}

TEST(IpScope, FollowsTheAddressRanges) {
    const struct {
        IpScope scope;
        std::vector<const char*> addresses;
    } cases[]{
        {IpScope::global,
         {"1.0.0.0", "10.0.0.1", "126.255.255.255", "128.0.0.0", "169.253.255.255", "169.255.0.0",
          "223.255.255.255", "2001:db8::1", "::2", "fc00::1", "fe7f::", "fec0::", "::1:0:0:1",
          "::fffe:7f00:1", "::1:ffff:7f00:1"}},
        {IpScope::linkLocal, {"169.254.0.0", "169.254.255.255", "fe80::1", "febf::1"}},
        {IpScope::linkMulticast,
         {"224.0.0.0", "224.0.0.255", "255.255.255.255", "ff02::1", "ff12::1", "ff01::1"}},
        {IpScope::multicast, {"224.0.1.0", "232.1.1.1", "239.255.255.255", "ff05::2", "ff0e::1"}},
        {IpScope::nowhere,
         {"0.0.0.0", "0.1.2.3", "127.0.0.1", "127.255.255.255", "240.0.0.0", "255.255.255.254",
          "::", "::1", "::ffff:127.0.0.1", "::ffff:10.0.0.1"}},
    };
    for (const auto& given : cases) {
        for (const char* address : given.addresses) {
            EXPECT_EQ(ipScope(Lumo::IpGenAddr::fromText(address)), given.scope) << address;
        }
    }
}

TEST(IpPacketUpperLayer, FollowsAnIpv4HeaderWithOptions) {
    Ipv4 fields;
    fields.options = filled(8, 1);
    const Bytes packet = join({ipv4(fields, udp()), filled(9, 0xee)});
    const auto upper = IpPacket{PktHdrType::ipv4, packet}.upperLayer();
    ASSERT_TRUE(upper);
    EXPECT_EQ(upper->protocol, protocolUdp);
    EXPECT_TRUE(upper->isFirstFragment);
    EXPECT_EQ(bytesOf(*upper), udp());
}

TEST(IpPacketUpperLayer, IsMissingFromLaterFragments) {
    Ipv4 fields;
    fields.fragment = 1;
    const Bytes packet = ipv4(fields, udp());
    EXPECT_FALSE((IpPacket{PktHdrType::ipv4, packet}).upperLayer()->isFirstFragment);
    Bytes v6;
    const auto later = ofIpv6(44, join({{17, 0, 0, 8, 0, 0, 0, 1}, udp()}), v6);
    EXPECT_FALSE(later->isFirstFragment);
    EXPECT_TRUE(later->bytes.empty());
}

TEST(IpPacketUpperLayer, FollowsIpv6ExtensionHeaders) {
    const Bytes options = join({{60, 1}, filled(14, 0)});
    const Bytes routing = join({{44, 0}, filled(6, 0)});
    const Bytes firstFragment{51, 0, 0, 1, 0, 0, 0, 1};
    const Bytes authentication = join({{17, 1}, filled(10, 0)});
    const Bytes destination = join({{43, 0}, filled(6, 0)});
    Bytes packet;
    const auto upper = ofIpv6(
        0, join({options, destination, routing, firstFragment, authentication, udp()}), packet);
    ASSERT_TRUE(upper);
    EXPECT_EQ(upper->protocol, protocolUdp);
    EXPECT_TRUE(upper->isFirstFragment);
    EXPECT_EQ(bytesOf(*upper), udp());
}

TEST(IpPacketUpperLayer, ExtensionHeadersEndWithinThePacket) {
    const Bytes options = join({{17, 1}, filled(14, 0)});
    Bytes packet;
    for (std::size_t size = 1; size < options.size(); ++size) {
        EXPECT_FALSE(ofIpv6(0, cut(options, size), packet)) << size;
    }
    const auto upper = ofIpv6(0, options, packet);
    ASSERT_TRUE(upper);
    EXPECT_TRUE(upper->bytes.empty());
}

} // namespace IpPacketTest
