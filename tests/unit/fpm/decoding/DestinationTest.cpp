#include "decoding/Destination.h"

#include <gtest/gtest.h>
#include <set>
#include <string>

#include "Refusal.h"
#include "Tessel/Exceptions.h"
#include "decoding/RouteText.h"

namespace {

using namespace OvixFpm;
using Lumo::IpGenAddr;
using Lumo::MplsLabel;
using TestSupport::refusal;

Destination destination(const char* prefix, std::uint8_t length, std::uint32_t table = 254) {
    return {table, IpGenAddr::fromText(prefix), length};
}

TEST(IncomingLabel, isNoneOfTheSpecialPurposeLabels) {
    for (std::uint32_t value = 0; value < 16; ++value) {
        EXPECT_EQ(refusal<Tessel::RangeError>([&] { IncomingLabel{MplsLabel(value)}; }),
                  "route for the special-purpose label " + std::to_string(value));
    }
    EXPECT_EQ(IncomingLabel(MplsLabel(16)).label(), MplsLabel(16));
    EXPECT_EQ(IncomingLabel(MplsLabel(MplsLabel::max)).label(), MplsLabel(MplsLabel::max));
}

TEST(Destination, holdsAPrefixOfATable) {
    const Destination v4 = destination("203.0.113.128", 25, 100);
    EXPECT_EQ(v4.family(), Lumo::IpFamily::ipv4);
    EXPECT_EQ(text(v4), "203.0.113.128/25 table 100");
    EXPECT_EQ(text(destination("0.0.0.0", 0)), "0.0.0.0/0 table 254");
    EXPECT_EQ(text(destination("255.255.255.255", 32)), "255.255.255.255/32 table 254");
    EXPECT_EQ(text(destination("2001:db8::1", 128, 0xffffffff)),
              "2001:db8::1/128 table 4294967295");
}

TEST(Destination, whatIsNoPrefixOfATableIsRefused) {
    EXPECT_EQ(refusal<Tessel::RangeError>([] { destination("203.0.113.0", 24, 0); }),
              "route of the table 0, which is none");
    EXPECT_EQ(refusal<Tessel::RangeError>([] { destination("", 0); }),
              "prefix of no address family");
    EXPECT_EQ(refusal<Tessel::RangeError>([] { destination("203.0.113.0", 33); }),
              "prefix length 33 is more than 32");
    EXPECT_EQ(refusal<Tessel::RangeError>([] { destination("::", 129); }),
              "prefix length 129 is more than 128");
    EXPECT_EQ(refusal<Tessel::RangeError>([] { destination("203.0.113.1", 31); }),
              "prefix 203.0.113.1/31 has bits beyond its length");
    EXPECT_EQ(refusal<Tessel::RangeError>([] { destination("128.0.0.0", 0); }),
              "prefix 128.0.0.0/0 has bits beyond its length");
    EXPECT_EQ(refusal<Tessel::RangeError>([] { destination("2001:db8::1", 127); }),
              "prefix 2001:db8::1/127 has bits beyond its length");
}

TEST(Destination, isOrderedByTableFamilyPrefixLength) {
    const std::vector<Destination> ordered{
        destination("203.0.113.0", 24, 10), destination("0.0.0.0", 0),   destination("10.0.0.0", 8),
        destination("10.0.0.0", 16),        destination("10.1.0.0", 16), destination("::", 0),
        destination("10.0.0.0", 8, 255)};
    const std::set<Destination> sorted(ordered.rbegin(), ordered.rend());
    EXPECT_EQ(std::vector<Destination>(sorted.begin(), sorted.end()), ordered);
    EXPECT_EQ(destination("10.0.0.0", 8), destination("10.0.0.0", 8));
    EXPECT_NE(destination("10.0.0.0", 8), destination("10.0.0.0", 9));
}

} // namespace
