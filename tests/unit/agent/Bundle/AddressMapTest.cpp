#include "Bundle/AddressMap.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <set>

#include "Bundle/Anonymise.h"
#include "FrameBytes.h"
#include "Ip/IpPacket.h"

namespace AddressMapTest {

using namespace OvixAgent;
using namespace TestSupport::Raw;
using Lumo::IpGenAddr;
using Lumo::IpGenPrefix;

namespace {

constexpr AddressMap::Key key{0x0706050403020100U, 0x0f0e0d0c0b0a0908U};

IpGenAddr address(const char* text) {
    return IpGenAddr::fromText(text);
}

IpGenAddr someIpv4(std::mt19937& random) {
    std::array<std::uint8_t, 4> bytes{};
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(random());
    }
    return IpGenAddr::ipv4(bytes.data());
}

unsigned commonBits(const IpGenAddr& a, const IpGenAddr& b) {
    std::uint8_t length = 0;
    while (length < a.bits() && a.masked(static_cast<std::uint8_t>(length + 1)) ==
                                    b.masked(static_cast<std::uint8_t>(length + 1))) {
        ++length;
    }
    return length;
}

} // namespace

TEST(AddressMap, KeepsPrefixesAndScopes) {
    const AddressMap map(key, {});
    std::mt19937 random(1);
    for (int i = 0; i < 2000; ++i) {
        const IpGenAddr a = someIpv4(random);
        const IpGenAddr b = i % 2 == 0 ? someIpv4(random) : IpGenPrefix::of(a, 20).address();
        EXPECT_EQ(commonBits(map(a), map(b)), commonBits(a, b));
        EXPECT_EQ(ipScope(map(a)), ipScope(a)) << a.text();
    }
}

TEST(AddressMap, ReplacesAlmostAllAddressesAndOthersByAnotherKey) {
    const AddressMap map(key, {});
    const AddressMap other({key[1], key[0]}, {});
    int same = 0;
    int alike = 0;
    std::mt19937 random(2);
    for (int i = 0; i < 1000; ++i) {
        const IpGenAddr a = someIpv4(random);
        if (ipScope(a) == IpScope::global) {
            same += map(a) == a ? 1 : 0;
            alike += map(a) == other(a) ? 1 : 0;
        }
    }
    EXPECT_EQ(same, 0);
    EXPECT_EQ(alike, 0);
    EXPECT_NE(map(address("2001:db8::1")), address("2001:db8::1"));
}

TEST(AddressMap, LeavesSpecialAddressesAndHostsOfSubnets) {
    const AddressMap map(key, {IpGenPrefix(address("10.0.1.0"), 24)});
    for (const char* special : {"127.0.0.1", "0.0.0.0", "224.0.0.5", "255.255.255.255",
                                "169.254.1.1", "::1", "::ffff:127.0.0.1", "fe80::1", "ff02::5"}) {
        EXPECT_EQ(map(address(special)), address(special)) << special;
    }
    const auto network = map(address("10.0.1.0"));
    EXPECT_NE(network, address("10.0.1.0"));
    EXPECT_EQ(map(address("10.0.1.255")).bytes()[3], 255);
    EXPECT_EQ(map(address("10.0.1.7")).bytes()[3], 7);
    EXPECT_TRUE(IpGenPrefix(network, 24).contains(map(address("10.0.1.255"))));
}

TEST(AddressMap, PrivateAddressesStayPrivate) {
    std::mt19937 random(3);
    for (const auto& [start, length] :
         {std::pair("10.0.0.0", 8), std::pair("172.16.0.0", 12), std::pair("192.168.0.0", 16),
          std::pair("100.64.0.0", 10), std::pair("fc00::", 7)}) {
        const IpGenPrefix range(address(start), static_cast<std::uint8_t>(length));
        int inside = 0;
        for (int i = 0; i < 100; ++i) {
            const AddressMap map({random(), random()}, {});
            inside += range.contains(map(range.address())) ? 1 : 0;
        }
        EXPECT_EQ(inside, 100) << start;
    }
    EXPECT_NE(AddressMap(key, {})(address("10.0.2.2")), address("10.0.2.2"));
}

TEST(AddressMap, TextsLoseCommentsAndKeepAllElse) {
    const AddressMap map(key, {});
    const std::string one = map(address("10.0.1.1")).text();
    const std::string six = map(address("2001:db8::1")).text();
    const auto range = map(IpGenPrefix(address("10.9.0.0"), 16));
    EXPECT_EQ(
        anonymousText("# by ACME\na: {x: [10.0.1.1/24, \"2001:db8::1/64\"], y: 1.5} # 10.0.1.1\n"
                      "mac: \"02:00:00:00:00:01\"\np: 10.9.0.0/16\nq: \"a #b\"\n10.0.1.1: dead\n",
                      map),
        "\na: {x: [" + one + "/24, \"" + six + "/64\"], y: 1.5} \nmac: \"02:00:00:00:00:01\"\np: " +
            range.address().text() + "/16\nq: \"a #b\"\n" + one + ": dead\n");
}

TEST(AddressMap, FramesStayIntact) {
    const AddressMap map(key, {});
    const Bytes before = join({eth(ethMpls), stack({{100}, {7}}), ipv4({}, udp())});
    Bytes after = before;
    anonymiseFrame(after, map);
    ASSERT_EQ(after.size(), before.size());
    EXPECT_NE(after, before);
    const IpPacket packet{Ovix::PktHdrType::ipv4, std::span(after).subspan(22)};
    EXPECT_EQ(packet.fault(0), "");
    const IpPacket was{Ovix::PktHdrType::ipv4, std::span(before).subspan(22)};
    EXPECT_EQ(packet.source(), map(was.source()));
    EXPECT_EQ(packet.destination(), map(was.destination()));
}

namespace {

bool contains(const Bytes& bytes, const char* text) {
    const IpGenAddr sought = address(text);
    const std::size_t size = sought.bits() / 8U;
    return std::search(bytes.begin(), bytes.end(), sought.bytes().begin(),
                       sought.bytes().begin() + static_cast<std::ptrdiff_t>(size)) != bytes.end();
}

Bytes icmpError(std::uint8_t type, const Bytes& quoted) {
    Bytes message = join({{type, 0, 0, 0, 0, 0, 0, 0}, quoted});
    const auto sum = static_cast<std::uint16_t>(~onesSum(message));
    message[2] = static_cast<std::uint8_t>(sum >> 8U);
    message[3] = static_cast<std::uint8_t>(sum);
    return message;
}

Ipv4 fieldsOf(std::uint8_t protocol) {
    Ipv4 fields;
    fields.protocol = protocol;
    return fields;
}

} // namespace

/// What an ICMP error quotes, what a tunnel carries, and what is behind headers names addresses,
/// too.
TEST(AddressMap, NoAddressIsLeftBeneathTheHeaders) {
    const AddressMap map(key, {});
    const Bytes named = join({udp(), {10, 1, 0, 1}, {10, 9, 0, 1}});
    const Bytes packet = ipv4({}, named);
    const Bytes plain = join({eth(ethIpv4), packet});
    ASSERT_TRUE(contains(plain, "10.1.0.1") && contains(plain, "10.9.0.1"));
    const Bytes error = ipv4(fieldsOf(1), icmpError(3, packet));
    for (const Bytes& frame :
         {plain, join({eth(ethIpv4), error}), join({eth(ethMpls), stack({{100}}), error}),
          join({eth(ethIpv4), ipv4(fieldsOf(4), packet)}),
          join({eth(ethIpv4), ipv4(fieldsOf(89), packet)}),
          join({eth(ethMpls), stack({{100}}), u32(0), plain}),
          join({eth(ethMpls), stack({{100}}), plain}),
          join({eth(ethMpls), stack({{100}}), u32(0x10000021), packet}),
          join({eth(0x0806),
                u32(0x00010800),
                u32(0x06040001),
                filled(6, 2),
                {10, 1, 0, 1},
                filled(6, 0),
                {10, 9, 0, 1}}),
          join({eth(0x88cc), {10, 1, 0, 1}})}) {
        Bytes changed = frame;
        anonymiseFrame(changed, map);
        EXPECT_EQ(changed.size(), frame.size());
        EXPECT_FALSE(contains(changed, "10.1.0.1") || contains(changed, "10.9.0.1"));
    }
}

TEST(AddressMap, TheChecksumOfAnErrorFollowsWhatItQuotes) {
    const AddressMap map(key, {});
    Bytes frame = join({eth(ethIpv4), ipv4(fieldsOf(1), icmpError(11, ipv4({}, udp())))});
    anonymiseFrame(frame, map);
    EXPECT_EQ(onesSum(std::span(frame).subspan(34)), 0xffff);
    EXPECT_EQ(onesSum(std::span(frame).subspan(14, 20)), 0xffff);
    EXPECT_EQ(onesSum(std::span(frame).subspan(42, 20)), 0xffff) << "of the quoted header";
    EXPECT_TRUE(contains(frame, map(address("10.1.0.1")).text().c_str()));
}

/// Whatever a frame is, only bytes of whole headers change.
TEST(AddressMap, CutFramesAreNoTrouble) {
    const AddressMap map(key, {});
    const Bytes whole = join({eth(ethMpls), stack({{100}}), ipv4({}, udp())});
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        anonymiseFrame(cut, map);
        EXPECT_EQ(cut.size(), size);
    }
}

} // namespace AddressMapTest
