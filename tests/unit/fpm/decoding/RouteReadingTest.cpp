#include "decoding/RouteReading.h"

#include <gtest/gtest.h>

#include "FpmBytes.h"
#include "FpmEvents.h"

namespace RouteReadingTest {

namespace {

using namespace TestSupport::Fpm;

const RouteHead ipv4{AF_INET, 24};
const RouteHead ipv6{AF_INET6, 48};
const Bytes destinationV4 = attribute(RTA_DST, v4(0xcb007100));
const Bytes destinationV6 = attribute(RTA_DST, v6(0, 1));
const Bytes gatewayV4 = attribute(RTA_GATEWAY, v4(0xc0000202));
const Bytes gatewayV6 = attribute(RTA_GATEWAY, v6(2));
const Bytes viaV6 = via(AF_INET6, v6(2));

/// The one line of a route for 203.0.113.0/24 respectively 2001:db8:1::/48.
std::string routeOf(const RouteHead& head, const Bytes& attributes) {
    const Lines lines = linesOf(frame(newRoute(
        head, join({head.family == AF_INET ? destinationV4 : destinationV6, attributes}))));
    EXPECT_EQ(lines.size(), 1U);
    return lines.empty() ? "" : lines.front();
}

struct Case {
    const char* name;
    RouteHead head;
    Bytes attributes;
    std::string expected;
};

std::string caseName(const testing::TestParamInfo<Case>& tested) {
    return tested.param.name;
}

class PrefixRoutes : public testing::TestWithParam<Case> {};

TEST_P(PrefixRoutes, readAsTheyWereMade) {
    EXPECT_EQ(routeOf(GetParam().head, GetParam().attributes), GetParam().expected);
}

const std::string v4Head = "203.0.113.0/24 table 254 protocol 196: ";
const std::string v6Head = "2001:db8:1::/48 table 254 protocol 196: ";

INSTANTIATE_TEST_SUITE_P(
    Kinds, PrefixRoutes,
    testing::Values(
        Case{"ipv4", ipv4, join({gatewayV4, interface(3)}),
             v4Head + "[] via 192.0.2.2 interface 3 weight 1"},
        Case{"ipv6", ipv6, join({gatewayV6, interface(3)}),
             v6Head + "[] via 2001:db8::2 interface 3 weight 1"},
        Case{"ipv4OverIpv6", ipv4, join({viaV6, interface(3)}),
             v4Head + "[] via 2001:db8::2 interface 3 weight 1"},
        Case{"connected", ipv4, interface(3), v4Head + "[] interface 3 weight 1"},
        Case{"labelled", ipv4, join({push({16, 1048575}), gatewayV4, interface(3)}),
             v4Head + "[16/1048575] via 192.0.2.2 interface 3 weight 1"},
        Case{"labelledIpv6", ipv6, join({push({2}), gatewayV6, interface(3)}),
             v6Head + "[2] via 2001:db8::2 interface 3 weight 1"},
        Case{"ipv6OverIpv4", ipv6,
             join({push({16, 2}), via(AF_INET, v4(0xc0000209)), interface(3)}),
             v6Head + "[16/2] via 192.0.2.9 interface 3 weight 1"},
        Case{"weighted", ipv4,
             nested(RTA_MULTIPATH,
                    join({pathEntry(0, 3, gatewayV4), pathEntry(3, 5, join({push({7}), viaV6})),
                          pathEntry(255, 7, {})})),
             v4Head + "[] via 192.0.2.2 interface 3 weight 1, "
                      "[7] via 2001:db8::2 interface 5 weight 4, [] interface 7 weight 256"},
        Case{"largeTable", ipv4, join({attribute(RTA_TABLE, host32(100000)), interface(3)}),
             "203.0.113.0/24 table 100000 protocol 196: [] interface 3 weight 1"},
        Case{"smallTable",
             {AF_INET, 24, RTN_UNICAST, 10, 2},
             interface(3),
             "203.0.113.0/24 table 10 protocol 2: [] interface 3 weight 1"},
        Case{"tableNotGiven",
             {AF_INET, 24, RTN_UNICAST, 0},
             interface(3),
             v4Head + "[] interface 3 weight 1"},
        Case{"metricAndSource", ipv4,
             join({attribute(RTA_PRIORITY, host32(20)), attribute(RTA_PREFSRC, v4(1)),
                   interface(3)}),
             v4Head + "[] interface 3 weight 1"},
        Case{"blackhole", {AF_INET, 24, RTN_BLACKHOLE}, {}, v4Head + "blackhole"},
        Case{"unreachable", {AF_INET6, 48, RTN_UNREACHABLE}, {}, v6Head + "unreachable"},
        Case{"prohibit", {AF_INET, 24, RTN_PROHIBIT}, {}, v4Head + "prohibit"},
        Case{"local", {AF_INET, 24, RTN_LOCAL}, interface(1), v4Head + "local"}),
    caseName);

class RefusedPrefixRoutes : public testing::TestWithParam<Case> {};

TEST_P(RefusedPrefixRoutes, sayWhy) {
    EXPECT_EQ(routeOf(GetParam().head, GetParam().attributes),
              "refused at 4: " + GetParam().expected);
}

Bytes encap(std::uint16_t type, const Bytes& value) {
    return join({attribute(RTA_ENCAP_TYPE, host16(type)), nested(RTA_ENCAP, value), interface(3)});
}

INSTANTIATE_TEST_SUITE_P(
    Reasons, RefusedPrefixRoutes,
    testing::Values(
        Case{"noNextHop", ipv4, {}, "next hop has neither gateway nor interface"},
        Case{"multicast", {AF_INET, 24, RTN_MULTICAST}, interface(3), "route of type 5"},
        Case{"unspecifiedType", {AF_INET, 24, RTN_UNSPEC}, interface(3), "route of type 0"},
        Case{"tooLong", {AF_INET, 33}, interface(3), "prefix length 33 is more than 32"},
        Case{"tooLongForIpv6", {AF_INET6, 129}, interface(3), "prefix length 129 is more than 128"},
        Case{"hostBits",
             {AF_INET, 16},
             interface(3),
             "prefix 203.0.113.0/16 has bits beyond its length"},
        Case{"bySource",
             {AF_INET6, 48, RTN_UNICAST, 254, 196, 64},
             interface(3),
             "route by source address"},
        Case{"bySourceAttribute", ipv6, join({attribute(RTA_SRC, v6(0)), interface(3)}),
             "route by source address"},
        Case{"byTos",
             {AF_INET, 24, RTN_UNICAST, 254, 196, 0, 16},
             interface(3),
             "route by type of service"},
        Case{"gatewayOfTheWrongFamily", ipv4, gatewayV6, "RTA_GATEWAY has 16 bytes instead of 4"},
        Case{"gatewayV6OfTheWrongFamily", ipv6, gatewayV4, "RTA_GATEWAY has 4 bytes instead of 16"},
        Case{"viaIpv4", ipv4, via(AF_INET, v4(1)), "RTA_VIA of address family 2"},
        Case{"viaInIpv6", ipv6, viaV6, "RTA_VIA of address family 10"},
        Case{"twoGateways", ipv4, join({gatewayV4, viaV6}),
             "next hop with both RTA_GATEWAY and RTA_VIA"},
        Case{"tableOfTheWrongSize", ipv4, join({attribute(RTA_TABLE, {1}), interface(3)}),
             "RTA_TABLE has 1 bytes instead of 4"},
        Case{"encapWithoutType", ipv4, join({nested(RTA_ENCAP, {}), interface(3)}),
             "RTA_ENCAP without RTA_ENCAP_TYPE"},
        Case{"encapTypeAlone", ipv4,
             join({attribute(RTA_ENCAP_TYPE, host16(LWTUNNEL_ENCAP_MPLS)), interface(3)}),
             "RTA_ENCAP_TYPE without RTA_ENCAP"},
        Case{"segmentRouting", ipv6, encap(LWTUNNEL_ENCAP_SEG6, {}),
             "encapsulation of type 5 is not MPLS"},
        Case{"encapWithoutLabels", ipv4,
             encap(LWTUNNEL_ENCAP_MPLS, attribute(MPLS_IPTUNNEL_TTL, {64})),
             "RTA_ENCAP without MPLS_IPTUNNEL_DST"},
        Case{"brokenEncap", ipv4, encap(LWTUNNEL_ENCAP_MPLS, {9, 0, 1, 0}),
             "attribute at byte 0 of its list is 9 bytes long, of 4 that are left"},
        Case{"nextHopGroup", ipv4, attribute(RTA_NH_ID, host32(34)),
             "route through the next hop group 34; zebra needs \"no fpm use-next-hop-groups\""},
        Case{"emptyMultipath", ipv4, nested(RTA_MULTIPATH, {}), "route without a next hop"},
        Case{"multipathAndGateway", ipv4,
             join({nested(RTA_MULTIPATH, pathEntry(0, 3, gatewayV4)), gatewayV4}),
             "RTA_MULTIPATH and RTA_GATEWAY"},
        Case{"shortPathHeader", ipv4, nested(RTA_MULTIPATH, {8, 0, 0, 0}),
             "next hop header needs 8 bytes; there are 4"},
        Case{"shortPath", ipv4,
             nested(RTA_MULTIPATH, join({pathEntry(0, 3, {}), host16(7), {0, 0}, host32(5)})),
             "next hop 2 is 7 bytes long, of 8 that are left"},
        Case{"longPath", ipv4, nested(RTA_MULTIPATH, join({host16(9), {0, 0}, host32(5)})),
             "next hop 1 is 9 bytes long, of 8 that are left"},
        Case{"pathToNowhere", ipv4,
             nested(RTA_MULTIPATH, join({pathEntry(0, 3, gatewayV4), pathEntry(0, 0, {})})),
             "next hop has neither gateway nor interface"}),
    caseName);

TEST(DefaultRoutes, needNoDestination) {
    EXPECT_EQ(linesOf(frame(newRoute({AF_INET, 0}, interface(3)))),
              Lines{"0.0.0.0/0 table 254 protocol 196: [] interface 3 weight 1"});
    EXPECT_EQ(linesOf(frame(newRoute({AF_INET6, 0}, interface(3)))),
              Lines{"::/0 table 254 protocol 196: [] interface 3 weight 1"});
    EXPECT_EQ(linesOf(frame(newRoute({AF_INET, 24}, interface(3)))),
              Lines{"refused at 4: prefix of length 24 without RTA_DST"});
}

TEST(PrefixWithdrawals, needFamilyTableAndDestinationOnly) {
    const RouteHead head{AF_INET, 24, RTN_UNSPEC, 10};
    EXPECT_EQ(linesOf(frame(deletedRoute(head, destinationV4))),
              Lines{"203.0.113.0/24 table 10 withdrawn"});
    EXPECT_EQ(
        linesOf(frame(deletedRoute(head, join({destinationV4, attribute(RTA_TABLE, host32(1000)),
                                               attribute(RTA_NH_ID, host32(34)), gatewayV6})))),
        Lines{"203.0.113.0/24 table 1000 withdrawn"});
    EXPECT_EQ(linesOf(frame(deletedRoute(ipv6, destinationV6))),
              Lines{"2001:db8:1::/48 table 254 withdrawn"});
    EXPECT_EQ(linesOf(frame(deletedRoute({AF_INET, 8}, destinationV4))),
              Lines{"refused at 4: prefix 203.0.113.0/8 has bits beyond its length"});
}

const RouteHead lsp{AF_MPLS, 20};
const Bytes label1000 = attribute(RTA_DST, labels({1000}));

Lines routedTo(const Bytes& attributes, const RouteHead& head = lsp) {
    return linesOf(frame(newRoute(head, attributes)));
}
Lines routed1000(const RouteHead& head) {
    return routedTo(join({label1000, interface(3)}), head);
}

TEST(LabelRouteHead, theLabelIsOneWholeLabelStackEntryOf20Bits) {
    EXPECT_EQ(routedTo(interface(3)), Lines{"refused at 4: label route without RTA_DST"});
    EXPECT_EQ(routedTo(join({attribute(RTA_DST, {0, 1}), interface(3)})),
              Lines{"refused at 4: RTA_DST has 2 bytes instead of 4"});
    EXPECT_EQ(routedTo(join({attribute(RTA_DST, labels({16, 17})), interface(3)})),
              Lines{"refused at 4: RTA_DST has 8 bytes instead of 4"});
    EXPECT_EQ(routed1000({AF_MPLS, 19}), Lines{"refused at 4: label of 19 bits instead of 20"});
    EXPECT_EQ(
        routedTo(join({attribute(RTA_DST, labels({15})), interface(3)})),
        Lines{"refused at 4: label 15 is a special-purpose label, and no table holds labels 0 "
              "to 15 (RFC 7274)"});
}

TEST(LabelRouteHead, onlyUnicastRoutesHaveLabels) {
    for (const std::uint8_t type : {RTN_UNSPEC, RTN_LOCAL, RTN_BLACKHOLE}) {
        EXPECT_EQ(routed1000({AF_MPLS, 20, type}),
                  Lines{"refused at 4: label route of type " + std::to_string(type)});
    }
}

TEST(LabelWithdrawals, needOnlyTheLabel) {
    const std::string withdrawn = "label 1000 withdrawn";
    EXPECT_EQ(linesOf(frame(deletedRoute({AF_MPLS, 20, RTN_UNSPEC}, label1000))), Lines{withdrawn});
    EXPECT_EQ(linesOf(frame(deletedRoute(
                  lsp, join({label1000, attribute(RTA_NEWDST, labels({3})), gatewayV4})))),
              Lines{withdrawn});
    EXPECT_EQ(linesOf(frame(deletedRoute(lsp, {}))),
              Lines{"refused at 4: label route without RTA_DST"});
    EXPECT_EQ(linesOf(frame(deletedRoute(lsp, attribute(RTA_DST, labels({3}))))),
              Lines{"refused at 4: label 3 (implicit null) never stands in a frame (RFC 3032 "
                    "section 2.1)"});
}

} // namespace

} // namespace RouteReadingTest
