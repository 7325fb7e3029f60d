#include "route/RoutePrinting.h"

#include <nlohmann/json.hpp>

#include "CtlTables.h"

using namespace CtlTesting;
using Cells = OvixCtl::TextTable::Cells;
using Lumo::MplsLabelAction;
using OvixCtl::routeJson;
using OvixCtl::routeRows;
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

TEST(RouteText, WhatIsUnusualOfAViaIsPrintedBehindIt) {
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

TEST(RouteText, AnInterfaceWithoutANameIsShownByItsId) {
    const IntfText none;
    EXPECT_EQ(none.text(Lumo::IntfId::fromValue(0x0100000000000abc)), "0x0100000000000abc");
    EXPECT_EQ(none.text(Lumo::CpuIntfId::cpuIdToIntfId(2)), "cpu2");
    EXPECT_EQ(none.text({}), "");
}

TEST(RouteRows, EveryViaHasALine) {
    const PublishedRoute route("100 nexthop as to 200/300 via 10.0.0.1 dev a weight 3 nexthop "
                               "push 7 via fe80::1 dev b");
    const auto rows = routeRows(route.read(), route.names());
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0],
              (Cells{"transit", "100", "ip", "swap", "200/300", "10.0.0.1", "a", "3", ""}));
    EXPECT_EQ(rows[1], (Cells{"transit", "100", "ip", "push", "7", "fe80::1", "b", "1", ""}));
    EXPECT_EQ(rows[0].size(), OvixCtl::routeColumns().size());
}

TEST(RouteRows, ALookUpPopsAndNamesItsVrf) {
    const PublishedRoute route("100 vrf red payload ipv4");
    EXPECT_EQ(routeRows(route.read(), {}).at(0),
              (Cells{"decap", "100", "ip-lookup", "pop", "", "", "", "", "vrf red payload ipv4"}));
}

TEST(RouteRows, BackupsAreMarked) {
    OvixCtl::AdjacencyView adjacency;
    adjacency.type = Mpls::LfibViaType::ip;
    adjacency.vias = {{via(Lumo::MplsLabelAction::pop, "10.0.0.1"), 1}};
    adjacency.backups = adjacency.vias;
    const auto rows = routeRows({Mpls::TableId::hardwareAdjacencies, 6, adjacency}, {});
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0].back(), "");
    EXPECT_EQ(rows[1].back(), "backup");
}

TEST(RouteRows, ARouteWithoutViasAndOneThatIsDamagedStillHaveALine) {
    EXPECT_EQ(routeRows({Mpls::TableId::decapLfib, 1, OvixCtl::LfibRouteView{}}, {}).size(), 1U);
    const auto rows = routeRows({Mpls::TableId::decapLfib, 1, OvixCtl::DamagedView{"wrong"}}, {});
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0][2], "corrupt");
    EXPECT_EQ(rows[0].back(), "wrong");
}

TEST(RouteJson, EveryKeyOfAnLfibRouteIsThere) {
    const PublishedRoute route("100 as to 200 via 10.0.0.1 dev a");
    EXPECT_EQ(routeJson(route.read(), route.names()),
              R"({"table":"transit","label":100,"type":"ip","multicast":false,"lookup":null,)"
              R"("tail":null,"vias":[{"action":"swap","labels":[200],"nexthop":"10.0.0.1",)"
              R"("interface":"a","weight":1,"ttl":"uniform","tc":null,"pushTtl":null,)"
              R"("payload":"auto","mtu":null,"vlan":null,"fec":null,"vrf":null}]})");
}

TEST(RouteJson, EachTableHasItsKeys) {
    using namespace OvixCtl;
    EXPECT_EQ(routeJson({Mpls::TableId::hardwareRoutes, 7, HardwareRouteView{6, true}}, {}),
              R"({"table":"hardware","label":7,"adjacency":6,"unprogrammed":true})");
    EXPECT_EQ(routeJson({Mpls::TableId::hardwareAdjacencies, 6, AdjacencyView{}}, {}),
              R"({"table":"adjacency","id":6,"type":"0","multicast":false,"useBackups":false,)"
              R"("vias":[],"backups":[]})");
    const MvpnView mvpn{Lumo::VlanIntfId::vlanIdToIntfId(9)};
    EXPECT_EQ(routeJson({Mpls::TableId::mvpnIntfStatus, 8, mvpn}, {}),
              R"({"table":"mvpn","vrfId":8,"interface":"vlan9"})");
    EXPECT_EQ(routeJson({Mpls::TableId::decapLfib, 5, DamagedView{"wrong"}}, {}),
              R"({"table":"decap","label":5,"corrupt":"wrong"})");
}

TEST(RouteJson, ALookUpIsAnObject) {
    const PublishedRoute route("100 vrf red");
    const auto json = nlohmann::ordered_json::parse(routeJson(route.read(), {}));
    EXPECT_EQ(json["lookup"].dump(), R"({"vrf":"red","payload":"auto"})");
    EXPECT_TRUE(json["vias"].empty());
}
