#include <gtest/gtest.h>

#include "FpmBytes.h"
#include "FpmEvents.h"
#include "decoding/RouteReading.h"

namespace NextHopReadingTest {

namespace {

using namespace TestSupport::Fpm;
using TestSupport::Raw::filled;
using TestSupport::Raw::u32;

const RouteHead lsp{AF_MPLS, 20};
const Bytes label1000 = attribute(RTA_DST, labels({1000}));
const Bytes viaV4 = via(AF_INET, v4(0xc0000202));

Lines routed(const Bytes& attributes, const RouteHead& head = lsp) {
    return linesOf(frame(newRoute(head, attributes)));
}

/// The one line of a route for label 1000 with these attributes.
std::string route1000(const Bytes& attributes, const RouteHead& head = lsp) {
    const Lines lines = routed(join({label1000, attributes}), head);
    EXPECT_EQ(lines.size(), 1U);
    return lines.empty() ? "" : lines.front();
}

struct Case {
    const char* name;
    Bytes attributes;
    std::string expected;
};

std::string caseName(const testing::TestParamInfo<Case>& tested) {
    return tested.param.name;
}

class LabelRoutes : public testing::TestWithParam<Case> {};

TEST_P(LabelRoutes, readAsTheyWereMade) {
    EXPECT_EQ(route1000(GetParam().attributes), GetParam().expected);
}

Bytes newLabels(const std::vector<std::uint32_t>& values) {
    return attribute(RTA_NEWDST, labels(values));
}

const Bytes viaV6 = via(AF_INET6, v6(2));
const std::string head = "label 1000 protocol 196: ";

INSTANTIATE_TEST_SUITE_P(
    Kinds, LabelRoutes,
    testing::Values(
        Case{"swap", join({newLabels({2000}), viaV4, interface(3)}),
             head + "[2000] via 192.0.2.2 interface 3 weight 1"},
        Case{"swapToSeveral", join({newLabels({2000, 16, 1048575}), viaV4, interface(3)}),
             head + "[2000/16/1048575] via 192.0.2.2 interface 3 weight 1"},
        Case{"implicitNull", join({viaV4, interface(3)}),
             head + "[] via 192.0.2.2 interface 3 weight 1"},
        Case{"ipv4ExplicitNull", join({newLabels({0}), viaV4, interface(3)}),
             head + "[0] via 192.0.2.2 interface 3 weight 1"},
        Case{"ipv6ExplicitNull", join({newLabels({2}), viaV6, interface(3)}),
             head + "[2] via 2001:db8::2 interface 3 weight 1"},
        Case{"ipv6NextHop", join({newLabels({2000}), viaV6, interface(3)}),
             head + "[2000] via 2001:db8::2 interface 3 weight 1"},
        Case{"gatewayWithoutInterface", join({newLabels({2000}), viaV4}),
             head + "[2000] via 192.0.2.2 weight 1"},
        Case{"interfaceOnly", interface(12), head + "[] interface 12 weight 1"},
        Case{"weighted",
             nested(RTA_MULTIPATH,
                    join({pathEntry(0, 3, join({newLabels({2000}), viaV4})),
                          pathEntry(9, 5, join({viaV6})), pathEntry(255, 7, newLabels({0}))})),
             head + "[2000] via 192.0.2.2 interface 3 weight 1, "
                    "[] via 2001:db8::2 interface 5 weight 10, [0] interface 7 weight 256"},
        Case{"ttlPropagated", join({attribute(RTA_TTL_PROPAGATE, {1}), interface(3)}),
             "label 1000 ttl-propagate protocol 196: [] interface 3 weight 1"},
        Case{"ttlNotPropagated", join({attribute(RTA_TTL_PROPAGATE, {0}), interface(3)}),
             "label 1000 no ttl-propagate protocol 196: [] interface 3 weight 1"}),
    caseName);

class RefusedLabelRoutes : public testing::TestWithParam<Case> {};

TEST_P(RefusedLabelRoutes, sayWhy) {
    EXPECT_EQ(route1000(GetParam().attributes), "refused at 4: " + GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Reasons, RefusedLabelRoutes,
    testing::Values(
        Case{"noNextHop", {}, "next hop has neither gateway nor interface"},
        Case{"implicitNullOnTheWire", join({newLabels({3}), interface(3)}),
             "implicit null in a label stack"},
        Case{"emptyStack", join({attribute(RTA_NEWDST, {}), interface(3)}),
             "RTA_NEWDST has 0 bytes, which are not a label stack"},
        Case{"halfALabel", join({attribute(RTA_NEWDST, {0, 0, 1, 0, 0, 0}), interface(3)}),
             "RTA_NEWDST has 6 bytes, which are not a label stack"},
        Case{"noBottom", join({attribute(RTA_NEWDST, u32(0x10000)), interface(3)}),
             "RTA_NEWDST has the bottom of the stack in the wrong place"},
        Case{"earlyBottom",
             join({attribute(RTA_NEWDST, join({u32(0x10100), u32(0x20100)})), interface(3)}),
             "RTA_NEWDST has the bottom of the stack in the wrong place"},
        Case{"trafficClass", join({attribute(RTA_NEWDST, u32(0x10300)), interface(3)}),
             "RTA_NEWDST has a label with a traffic class or TTL"},
        Case{"ttl", join({attribute(RTA_NEWDST, u32(0x10140)), interface(3)}),
             "RTA_NEWDST has a label with a traffic class or TTL"},
        Case{"viaTooShortForAFamily", attribute(RTA_VIA, {2}),
             "RTA_VIA needs 2 bytes; there are 1"},
        Case{"viaAMac", via(AF_PACKET, filled(6, 2)), "RTA_VIA of address family 17"},
        Case{"viaOfTheWrongSize", via(AF_INET, v6(2)), "RTA_VIA has 16 bytes instead of 4"},
        Case{"viaV6OfTheWrongSize", via(AF_INET6, v4(1)), "RTA_VIA has 4 bytes instead of 16"},
        Case{"viaTheUnspecifiedAddress", via(AF_INET, v4(0)), "gateway is the unspecified address"},
        Case{"gateway", attribute(RTA_GATEWAY, v4(1)), "RTA_GATEWAY in a label route"},
        Case{"interfaceOfTheWrongSize", attribute(RTA_OIF, {3}),
             "RTA_OIF has 1 bytes instead of 4"},
        Case{"negativeInterface", interface(0xffffffff),
             "interface index 4294967295 is more than 2147483647"},
        Case{"ttlPropagateTwo", join({attribute(RTA_TTL_PROPAGATE, {2}), interface(3)}),
             "RTA_TTL_PROPAGATE is 2"},
        Case{"destinationTwice", join({label1000, interface(3)}),
             "attribute at byte 8 of its list is the second of type 1"}),
    caseName);

} // namespace

} // namespace NextHopReadingTest
