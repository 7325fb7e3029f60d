#include "Lumo/IpGenAddr.h"

#include <gtest/gtest.h>

namespace IpGenAddrTest {

using namespace Lumo;

TEST(IpGenAddr, IsNoAddressByDefault) {
    EXPECT_EQ(IpGenAddr().family(), IpFamily::none);
    EXPECT_TRUE(IpGenAddr().empty());
    EXPECT_EQ(IpGenAddr().text(), "");
}

TEST(IpGenAddr, TheZeroAddressOfAFamilyIsEmptyButNotTheSame) {
    const IpGenAddr ipv4(IpFamily::ipv4);
    const IpGenAddr ipv6(IpFamily::ipv6);
    EXPECT_TRUE(ipv4.empty());
    EXPECT_TRUE(ipv6.empty());
    EXPECT_FALSE(ipv4.isEq(ipv6));
    EXPECT_FALSE(ipv4.isEq(IpGenAddr()));
    EXPECT_EQ(ipv4.text(), "0.0.0.0");
    EXPECT_EQ(ipv6.text(), "::");
}

TEST(IpGenAddr, ReadsTheBytesOfAHeader) {
    const std::uint8_t bytes[16] = {192, 0, 2, 1, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    for (const char* text : {"255.255.255.255", "10.0.100.9", "1.20.0.200"}) {
        EXPECT_EQ(IpGenAddr::fromText(text).text(), text);
    }
    EXPECT_EQ(IpGenAddr::ipv4(bytes).text(), "192.0.2.1");
    EXPECT_EQ(IpGenAddr::ipv4(bytes), IpGenAddr::fromText("192.0.2.1"));
    EXPECT_EQ(IpGenAddr::ipv6(bytes).text(), "c000:201:506:708:90a:b0c:d0e:f10");
    EXPECT_FALSE(IpGenAddr::ipv4(bytes).empty());
}

TEST(IpGenAddr, TextGoesThereAndBack) {
    for (const char* text : {"0.0.0.0", "255.255.255.255", "10.1.2.3", "::", "::1", "2001:db8::1",
                             "::ffff:127.0.0.1"}) {
        EXPECT_EQ(IpGenAddr::fromText(text).text(), text);
    }
}

TEST(IpGenAddr, WhatIsNoAddressYieldsNoFamily) {
    for (const char* text : {"", "10.0.0", "10.0.0.256", "10.0.0.1/24", "2001:db8::1::", "fe80",
                             " 10.0.0.1", "host"}) {
        EXPECT_EQ(IpGenAddr::fromText(text), IpGenAddr()) << text;
    }
}

TEST(IpGenPrefix, ComparesItsFirstBitsWithinTheFamily) {
    const struct {
        const char* prefix;
        std::uint8_t length;
        const char* address;
        bool contained;
    } cases[] = {
        {"127.0.0.0", 8, "127.255.255.255", true},
        {"127.0.0.0", 8, "126.255.255.255", false},
        {"127.0.0.0", 8, "128.0.0.0", false},
        {"10.0.0.0", 0, "255.1.2.3", true},
        {"10.1.2.3", 32, "10.1.2.3", true},
        {"10.1.2.3", 32, "10.1.2.2", false},
        {"10.1.2.0", 23, "10.1.3.9", true},
        {"10.1.2.0", 23, "10.1.4.0", false},
        {"10.1.2.0", 31, "10.1.2.1", true},
        {"10.1.2.0", 31, "10.1.2.2", false},
        {"::ffff:127.0.0.0", 104, "::ffff:127.9.9.9", true},
        {"::ffff:127.0.0.0", 104, "::ffff:128.0.0.0", false},
        {"::1", 128, "::1", true},
        {"::1", 128, "::", false},
        {"::", 0, "ffff::", true},
        {"::ffff:127.0.0.0", 104, "127.0.0.1", false},
        {"0.0.0.0", 0, "::", false},
    };
    for (const auto& row : cases) {
        const IpGenPrefix prefix(IpGenAddr::fromText(row.prefix), row.length);
        EXPECT_EQ(prefix.contains(IpGenAddr::fromText(row.address)), row.contained)
            << row.prefix << "/" << int{row.length} << " and " << row.address;
    }
}

} // namespace IpGenAddrTest
