#include "Ovix/packet/TtlBytes.h"

#include <algorithm>
#include <gtest/gtest.h>

#include "FrameBytes.h"

namespace TtlBytesTest {

using namespace Ovix;
using namespace TestSupport::Raw;

TEST(TtlBytes, EachHeaderHasItsOwnPlace) {
    Bytes label = entry({100, 5, 64}, true);
    TtlBytes::ttlIs(PktHdrType::mpls, label, 9);
    EXPECT_EQ(label, entry({100, 5, 9}, true));
    EXPECT_EQ(TtlBytes::ttl(PktHdrType::mpls, label), 9);

    Bytes four = ipv4({.ttl = 64, .options = filled(8, 1)}, filled(5, 0xa5));
    TtlBytes::ttlIs(PktHdrType::ipv4, four, 9);
    EXPECT_EQ(four, ipv4({.ttl = 9, .options = filled(8, 1)}, filled(5, 0xa5)));
    EXPECT_EQ(TtlBytes::ttl(PktHdrType::ipv4, four), 9);

    Bytes six = ipv6({.hopLimit = 64}, filled(5, 0xa5));
    TtlBytes::ttlIs(PktHdrType::ipv6, six, 9);
    EXPECT_EQ(six, ipv6({.hopLimit = 9}, filled(5, 0xa5)));
    EXPECT_EQ(TtlBytes::ttl(PktHdrType::ipv6, six), 9);
}

TEST(TrafficClass, EachHeaderHasItsOwnPlaceAndKeepsTheRest) {
    for (std::uint8_t tc = 0; tc < 8; ++tc) {
        Bytes label = entry({100, 5, 64}, true);
        trafficClassIs(PktHdrType::mpls, label, tc);
        EXPECT_EQ(label, entry({100, tc, 64}, true));
        EXPECT_EQ(trafficClassOf(PktHdrType::mpls, label), tc);

        const auto tos = [](std::uint8_t precedence) {
            return static_cast<std::uint8_t>(unsigned{precedence} << 5U |
                                             0x15U); // drop precedence, ECN
        };
        Bytes four = ipv4({.tos = tos(5), .options = filled(8, 1)}, filled(5, 0xa5));
        trafficClassIs(PktHdrType::ipv4, four, tc);
        EXPECT_EQ(four, ipv4({.tos = tos(tc), .options = filled(8, 1)}, filled(5, 0xa5)));
        EXPECT_EQ(trafficClassOf(PktHdrType::ipv4, four), tc);

        Bytes six = ipv6({.trafficClass = tos(5), .flowLabel = 0xabcde}, filled(5, 0xa5));
        trafficClassIs(PktHdrType::ipv6, six, tc);
        EXPECT_EQ(six, ipv6({.trafficClass = tos(tc), .flowLabel = 0xabcde}, filled(5, 0xa5)));
        EXPECT_EQ(trafficClassOf(PktHdrType::ipv6, six), tc);
    }
}

namespace {

/// A header whose checksum is a new sum over it.
Bytes ofIdent(std::uint8_t ttl, std::uint32_t ident) {
    static const Bytes any = ipv4({}, {});
    Bytes header = any;
    header[8] = ttl;
    header[4] = static_cast<std::uint8_t>(ident >> 8U);
    header[5] = static_cast<std::uint8_t>(ident);
    header[10] = header[11] = 0;
    const unsigned checksum = ~onesSum(header);
    header[10] = static_cast<std::uint8_t>(checksum >> 8U);
    header[11] = static_cast<std::uint8_t>(checksum);
    return header;
}

} // namespace

// The updated checksum is the one that a new sum over the header gives, also where it wraps
// (RFC 1624 section 3).
TEST(TtlBytes, TheIpv4ChecksumIsThatOfTheNewHeader) {
    const struct {
        std::uint8_t before;
        std::uint8_t after;
    } ttls[] = {{64, 63}, {1, 0}, {255, 254}, {3, 200}, {77, 77}};
    for (const auto& ttl : ttls) {
        std::vector<bool> checksums(0x10000);
        for (std::uint32_t ident = 0; ident < 0x10000; ++ident) {
            Bytes header = ofIdent(ttl.before, ident);
            TtlBytes::ttlIs(PktHdrType::ipv4, header, ttl.after);
            ASSERT_EQ(header, ofIdent(ttl.after, ident)) << ident;
            checksums[header[10] * 256U + header[11]] = true;
        }
        EXPECT_EQ(std::count(checksums.begin(), checksums.end(), false), 1);
        EXPECT_FALSE(checksums[0xffff]) << "no such header has it";
    }
}

TEST(TtlBytes, AChecksumOfMinusZeroStaysRight) {
    for (std::uint32_t ident = 0; ident < 0x10000; ++ident) {
        Bytes header = ipv4({.ident = static_cast<std::uint16_t>(ident)}, {});
        if (header[10] != 0 || header[11] != 0) {
            continue;
        }
        header[10] = header[11] = 0xff; // some senders write it so
        TtlBytes::ttlIs(PktHdrType::ipv4, header, 63);
        EXPECT_EQ(onesSum(header), 0xffff);
        return;
    }
    FAIL() << "no header with the checksum 0 was found";
}

TEST(TtlBytes, AWrongChecksumStaysWrong) {
    Bytes header = ipv4({.ttl = 64}, {});
    header[10] ^= 0x10;
    TtlBytes::ttlIs(PktHdrType::ipv4, header, 63);
    EXPECT_NE(onesSum(header), 0xffff);
}

TEST(TtlBytes, WholeMeansTheFixedPartOfTheRightVersion) {
    for (std::size_t size = 0; size <= 48; ++size) {
        EXPECT_EQ(TtlBytes::whole(PktHdrType::mpls, filled(size, 0x45)), size >= 4) << size;
        EXPECT_EQ(TtlBytes::whole(PktHdrType::ipv4, filled(size, 0x45)), size >= 20) << size;
        EXPECT_EQ(TtlBytes::whole(PktHdrType::ipv6, filled(size, 0x60)), size >= 40) << size;
        EXPECT_FALSE(TtlBytes::whole(PktHdrType::ipv4, filled(size, 0x65))) << size;
        EXPECT_FALSE(TtlBytes::whole(PktHdrType::ipv6, filled(size, 0x45))) << size;
        EXPECT_FALSE(TtlBytes::whole(PktHdrType::eth, filled(size, 0x45))) << size;
        EXPECT_FALSE(TtlBytes::whole(PktHdrType::none, filled(size, 0x45))) << size;
    }
}

} // namespace TtlBytesTest
