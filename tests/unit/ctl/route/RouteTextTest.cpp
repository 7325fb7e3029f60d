#include "route/RouteText.h"

#include "CtlTables.h"

using namespace CtlTesting;
using Lumo::MplsLabelAction;
using OvixCtl::routeText;

namespace {

std::string textOf(const PublishedRoute& route) {
    return routeText(route.read(), route.names());
}

} // namespace

TEST(RouteText, ARouteReadsAsItIsGiven) {
    for (const char* line : {"100 as to 200/300 via inet 10.0.2.2 dev east",
                             "100 via inet6 fe80::2 dev east weight 7", "100 push 16 dev east",
                             "100 nexthop as to 5 via inet 10.0.0.1 dev a weight 3 nexthop via "
                             "inet 10.0.0.2"}) {
        EXPECT_EQ(textOf(PublishedRoute(line)), "transit " + std::string(line));
    }
    EXPECT_EQ(textOf(PublishedRoute("7 table decap dev a")), "decap 7 dev a");
    EXPECT_EQ(textOf(PublishedRoute("7 vrf red")), "decap 7 vrf red payload auto");
}

TEST(RouteText, WhatIsUnusualOfAViaIsToldBehindIt) {
    OvixCtl::LfibRouteView route;
    route.type = Mpls::LfibViaType::externalFec;
    auto unusual = via(MplsLabelAction::swap, "10.0.0.1", {0, 0, 200});
    unusual.ttlMode = 1;
    unusual.trafficClass = 5;
    unusual.pushTtl = 9;
    unusual.payloadType = 3;
    unusual.nexthopMtu = 1400;
    unusual.nexthopVlan = 100;
    unusual.fecIdHigh = 1;
    unusual.fecIdLow = 2;
    unusual.vrfName = "red";
    unusual.controlWord = true;
    route.vias.push_back({unusual, 1});
    EXPECT_EQ(routeText({Mpls::TableId::decapLfib, 100, route}, {}),
              "decap 100 as to 200 via inet 10.0.0.1 ttl pipe tc 5 push-ttl 9 payload ipv6 mtu "
              "1400 vlan 100 fec 4294967298 vrf red control-word type external-fec");
}

TEST(RouteText, EveryKindOfEntryHasItsLine) {
    using namespace OvixCtl;
    const auto vlan = Lumo::VlanIntfId::vlanIdToIntfId(100);
    LfibRouteView tail;
    tail.type = Mpls::LfibViaType::multicastIpLookup;
    tail.setType = Mpls::LfibViaSetType::multicast;
    tail.tail.emplace();
    tail.tail->intfIdHigh = static_cast<std::uint32_t>(vlan.value() >> 32U);
    tail.tail->intfIdLow = static_cast<std::uint32_t>(vlan.value());
    tail.vias.push_back({via(MplsLabelAction::pop, "10.0.0.1"), 1});
    EXPECT_EQ(routeText({Mpls::TableId::decapLfib, 5, tail}, {}),
              "decap 5 multicast tail dev vlan100 nexthop via inet 10.0.0.1");
    AdjacencyView adjacency;
    adjacency.useBackups = true;
    adjacency.vias = {{via(MplsLabelAction::pop, "10.0.0.1"), 1}};
    adjacency.backups = {{via(MplsLabelAction::pop, "10.0.0.2"), 2}};
    EXPECT_EQ(routeText({Mpls::TableId::hardwareAdjacencies, 6, adjacency}, {}),
              "adjacency 6 use-backups via inet 10.0.0.1 backup via inet 10.0.0.2 weight 2");
    EXPECT_EQ(routeText({Mpls::TableId::hardwareRoutes, 7, HardwareRouteView{6, true}}, {}),
              "hardware 7 adjacency 6 unprogrammed");
    EXPECT_EQ(routeText({Mpls::TableId::mvpnIntfStatus, 8, MvpnView{vlan}}, {}),
              "mvpn 8 dev vlan100");
    EXPECT_EQ(routeText({Mpls::TableId::transitLfib, 9, DamagedView{"it is wrong"}}, {}),
              "transit 9 corrupt: it is wrong");
}

TEST(RouteText, AnInterfaceThatNobodyHasNamedIsShownByItsId) {
    const IntfText none;
    EXPECT_EQ(none.text(Lumo::IntfId::fromValue(0x0100000000000abc)), "0x0100000000000abc");
    EXPECT_EQ(none.text(Lumo::CpuIntfId::cpuIdToIntfId(2)), "cpu2");
    EXPECT_EQ(none.text({}), "");
}
