#include "Wire/Ip.h"

#include "FrameBytes.h"
#include "WireTesting.h"

namespace IpTest {

namespace {

using namespace TestSupport;
using TestSupport::Raw::join;
using Bytes = std::vector<std::uint8_t>;

const Bytes golden4{0x46, 0xb8, 0x01, 0x02, 0x12, 0x34, 0x60, 0x07, 0x40, 0x11, 0xab, 0xcd,
                    10,   1,    0,    1,    192,  0,    2,    1,    0x94, 4,    0,    0};
const Bytes golden6 =
    join({{0x6b, 0x81, 0x23, 0x45, 0x01, 0x02, 17, 64}, Raw::ipv6Address(1), Raw::ipv6Address(2)});

Lumo::IpGenAddr address(const char* text) {
    return Lumo::IpGenAddr::fromText(text);
}

TEST(WireIpv4, ReadsItsFields) {
    const Wire::Ipv4 header(golden4);
    EXPECT_EQ(header.headerSize(), 24U);
    EXPECT_EQ(header.trafficClass(), 0xb8);
    EXPECT_EQ(header.totalLength(), 0x102);
    EXPECT_EQ(header.identification(), 0x1234);
    EXPECT_EQ(header.fragment(), 0x6007);
    EXPECT_TRUE(header.dontFragment());
    EXPECT_FALSE(header.isFirstFragment());
    EXPECT_EQ(header.ttl(), 64);
    EXPECT_EQ(header.protocol(), Wire::IpProtocol::udp);
    EXPECT_EQ(header.checksum(), 0xabcd);
    EXPECT_EQ(header.source(), address("10.1.0.1"));
    EXPECT_EQ(header.destination(), address("192.0.2.1"));
    expectEmptyWhenShort<Wire::Ipv4>(golden4);
    expectEmptyWhenShort<Wire::Ipv4Writer>(golden4);
}

TEST(WireIpv4, WritesItsFieldsAndNothingElse) {
    Bytes bytes = untouched(24);
    const Wire::Ipv4Writer header(bytes);
    header.headerSizeIs(24);
    header.trafficClassIs(0xb8);
    header.totalLengthIs(0x102);
    header.identificationIs(0x1234);
    header.fragmentIs(0x6007);
    header.ttlIs(64);
    header.protocolIs(17);
    header.checksumIs(0xabcd);
    header.sourceIs(address("10.1.0.1"));
    header.destinationIs(address("192.0.2.1"));
    Bytes expected = golden4;
    std::fill(expected.begin() + 20, expected.end(), std::uint8_t{0xa5});
    EXPECT_EQ(bytes, expected);
}

TEST(WireIpv4, ChecksumFollowsTheTtl) {
    Bytes packet = Raw::ipv4({}, {});
    for (std::uint32_t ttl = 0; ttl < 256; ++ttl) {
        Wire::Ipv4Writer(packet).ttlWithChecksumIs(static_cast<std::uint8_t>(ttl));
        EXPECT_EQ(packet[8], ttl);
        EXPECT_EQ(Raw::onesSum(packet), 0xffff) << ttl;
    }
}

TEST(WireIpv6, ReadsItsFields) {
    const Wire::Ipv6 header(golden6);
    EXPECT_EQ(header.trafficClass(), 0xb8);
    EXPECT_EQ(header.payloadLength(), 0x102);
    EXPECT_EQ(header.nextHeader(), Wire::IpProtocol::udp);
    EXPECT_EQ(header.hopLimit(), 64);
    EXPECT_EQ(header.source(), address("2001:db8::1"));
    EXPECT_EQ(header.destination(), address("2001:db8::2"));
    expectEmptyWhenShort<Wire::Ipv6>(golden6);
    expectEmptyWhenShort<Wire::Ipv6Writer>(golden6);
}

TEST(WireIpv6, WritesItsFieldsAndNothingElse) {
    Bytes bytes = untouched(41);
    const Wire::Ipv6Writer header(bytes);
    header.flowIs(0xb8, 0x12345);
    header.payloadLengthIs(0x102);
    header.nextHeaderIs(17);
    header.hopLimitIs(64);
    header.sourceIs(address("2001:db8::1"));
    header.destinationIs(address("2001:db8::2"));
    EXPECT_EQ(bytes, join({golden6, {0xa5}}));
}

TEST(WireIp, AReaderIsEmptyOfAnotherVersion) {
    for (unsigned version = 0; version < 16; ++version) {
        Bytes packet = join({golden6, golden6});
        packet[0] = static_cast<std::uint8_t>(version << 4U | 5U);
        EXPECT_EQ(Wire::ipVersion(packet), version);
        EXPECT_EQ(static_cast<bool>(Wire::Ipv4(packet)), version == 4);
        EXPECT_EQ(static_cast<bool>(Wire::Ipv6(packet)), version == 6);
    }
    EXPECT_EQ(Wire::ipVersion({}), 0U);
}

TEST(WireUpperLayer, OfIpv4IsBehindItsOptions) {
    const Wire::UpperLayer later = Wire::upperLayer(Wire::Ipv4(golden4));
    EXPECT_EQ(later.offset, 24U);
    EXPECT_EQ(later.protocol, 17);
    EXPECT_FALSE(later.isFirstFragment);
    EXPECT_TRUE(later.isWhole);
    const Bytes first = Raw::ipv4({.fragment = 0x2000}, {});
    EXPECT_TRUE(Wire::upperLayer(Wire::Ipv4(first)).isFirstFragment);
}

/// Hop-by-hop of 8 bytes, routing of 16, authentication of 12 and destination options of 8.
Bytes extended() {
    return Raw::ipv6({.nextHeader = 0}, join({{43, 0, 1, 4, 0, 0, 0, 0},
                                              {51, 1},
                                              Raw::filled(14, 0),
                                              {60, 1},
                                              Raw::filled(10, 0),
                                              {17, 0, 1, 4, 0, 0, 0, 0},
                                              Raw::udp()}));
}

TEST(WireUpperLayer, OfIpv6IsBehindItsExtensionHeaders) {
    const Wire::UpperLayer upper = Wire::ipv6UpperLayer(extended());
    EXPECT_EQ(upper.offset, 40U + 8 + 16 + 12 + 8);
    EXPECT_EQ(upper.protocol, 17);
    EXPECT_TRUE(upper.isFirstFragment);
    EXPECT_TRUE(upper.isWhole);
    EXPECT_EQ(Wire::ipv6UpperLayer(golden6).offset, 40U);
}

TEST(WireUpperLayer, AnExtensionHeaderCutShortIsNotPassed) {
    const Bytes whole = extended();
    for (std::size_t size = 40; size <= whole.size(); ++size) {
        const Wire::UpperLayer upper = Wire::ipv6UpperLayer(Wire::Bytes(whole).first(size));
        const std::size_t expected = size < 48   ? 40
                                     : size < 64 ? 48
                                     : size < 76 ? 64
                                     : size < 84 ? 76
                                                 : 84;
        EXPECT_EQ(upper.offset, expected) << size;
        EXPECT_EQ(upper.isWhole, size >= 84) << size;
    }
}

TEST(WireUpperLayer, OnlyTheFirstFragmentShowsIt) {
    const auto fragment = [](std::uint32_t offsetAndFlags) {
        const Bytes packet = Raw::ipv6(
            {.nextHeader = 44}, join({{17, 0}, Raw::u16(offsetAndFlags), Raw::u32(9), Raw::udp()}));
        return Wire::ipv6UpperLayer(packet);
    };
    EXPECT_TRUE(fragment(0).isFirstFragment);
    EXPECT_TRUE(fragment(1).isFirstFragment); // more follow
    EXPECT_EQ(fragment(1).offset, 48U);
    EXPECT_FALSE(fragment(8).isFirstFragment);
    EXPECT_EQ(fragment(8).offset, 40U);
    EXPECT_EQ(fragment(8).protocol, 17);
    EXPECT_TRUE(fragment(8).isWhole);
}

} // namespace

} // namespace IpTest
