#include "route/RoutePrinting.h"

#include <nlohmann/json.hpp>

#include "CtlTables.h"

namespace RoutePrintingTest {

using namespace CtlTesting;
using OvixCtl::routeJson;
using OvixCtl::routeText;

TEST(RouteText, EveryKindOfEntryHasItsLine) {
    using namespace OvixCtl;
    Mpls::LabelRoute route;
    route.viaType = Mpls::LfibViaType::externalFec;
    route.vias = {popTo("10.0.0.1")};
    route.owner = 7;
    route.flags = 1;
    EXPECT_EQ(routeText({Mpls::TableId::decapLfib, 5, route}, {}),
              "decap 5 owner 7 flags 0x01 via inet 10.0.0.1 type external-fec");
    Mpls::Hardware::AdjacencyVias adjacency;
    adjacency.useBackups = true;
    adjacency.vias = {popTo("10.0.0.1")};
    adjacency.backups = {popTo("10.0.0.2", 2)};
    EXPECT_EQ(routeText({Mpls::TableId::hardwareAdjacencies, 6, adjacency}, {}),
              "adjacency 6 use-backups via inet 10.0.0.1 backup via inet 10.0.0.2 weight 2");
    const Mpls::Hardware::Route hardware{{}, 6, true};
    EXPECT_EQ(routeText({Mpls::TableId::hardwareRoutes, 7, hardware}, {}),
              "hardware 7 adjacency 6 unprogrammed");
    const Routing::Multicast::MvpnVrfIntfId mvpn{{8}, Lumo::VlanIntfId::vlanIdToIntfId(100)};
    EXPECT_EQ(routeText({Mpls::TableId::mvpnIntfStatus, 8, mvpn}, {}), "mvpn 8 dev vlan100");
    EXPECT_EQ(routeText({Mpls::TableId::transitLfib, 9, Damage{"it is wrong"}}, {}),
              "transit 9 corrupt: it is wrong");
}

TEST(RouteText, AnInterfaceWithoutANameIsShownByItsId) {
    const IntfText none;
    EXPECT_EQ(none.text(Lumo::IntfId::fromValue(0x0100000000000abc)), "0x0100000000000abc");
    EXPECT_EQ(none.text(Lumo::CpuIntfId::cpuIdToIntfId(2)), "cpu2");
    EXPECT_EQ(none.text({}), "");
}

TEST(RouteJson, EveryKeyOfAnLfibRouteIsThere) {
    const PublishedRoute route("100 as to 200 via 10.0.0.1 dev a");
    EXPECT_EQ(
        routeJson(route.read(), route.names()),
        R"({"table":"transit","label":100,"type":"ip","multicast":false,"lookup":null,)"
        R"("tail":null,"vias":[{"action":"swap","labels":[200],"nexthop":"10.0.0.1",)"
        R"("interface":"a","weight":1,"ttl":"uniform","tc":null,"pushTc":null,"pushTtl":null,)"
        R"("payload":"auto","mtu":null,"vlan":null,"fec":null,"vrf":null}]})");
}

TEST(RouteJson, EachTableHasItsKeys) {
    const Mpls::Hardware::Route hardware{{}, 6, true};
    EXPECT_EQ(routeJson({Mpls::TableId::hardwareRoutes, 7, hardware}, {}),
              R"({"table":"hardware","label":7,"adjacency":6,"unprogrammed":true})");
    Mpls::Hardware::AdjacencyVias empty;
    empty.viaType = Mpls::LfibViaType::none;
    EXPECT_EQ(routeJson({Mpls::TableId::hardwareAdjacencies, 6, empty}, {}),
              R"({"table":"adjacency","id":6,"type":"0","multicast":false,"useBackups":false,)"
              R"("vias":[],"backups":[]})");
    const Routing::Multicast::MvpnVrfIntfId mvpn{{8}, Lumo::VlanIntfId::vlanIdToIntfId(9)};
    EXPECT_EQ(routeJson({Mpls::TableId::mvpnIntfStatus, 8, mvpn}, {}),
              R"({"table":"mvpn","vrfId":8,"interface":"vlan9"})");
    EXPECT_EQ(routeJson({Mpls::TableId::decapLfib, 5, OvixCtl::Damage{"wrong"}}, {}),
              R"({"table":"decap","label":5,"corrupt":"wrong"})");
}

TEST(RouteJson, ALookUpIsAnObject) {
    const PublishedRoute route("100 vrf red");
    const auto json = nlohmann::ordered_json::parse(routeJson(route.read(), {}));
    EXPECT_EQ(json["lookup"].dump(), R"({"vrf":"red","payload":"auto"})");
    EXPECT_TRUE(json["vias"].empty());
}

} // namespace RoutePrintingTest
