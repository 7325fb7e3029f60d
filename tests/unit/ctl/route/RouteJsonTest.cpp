#include "route/RouteJson.h"

#include <nlohmann/json.hpp>

#include "CtlTables.h"

namespace RouteJsonTest {

using namespace CtlTesting;
using OvixCtl::routeJson;

TEST(RouteJson, EveryKeyOfAnLfibRouteIsThere) {
    const PublishedRoute route("100 as to 200 via 10.0.0.1 dev a");
    EXPECT_EQ(
        routeJson(route.read(), route.names()),
        R"({"table":"transit","label":100,"type":"ip","multicast":false,)"
        R"("owner":"operator","preference":null,"waitsFor":null,"flags":0,"lookup":null,)"
        R"("tail":null,"vias":[{"action":"swap","labels":[200],"nexthop":"10.0.0.1",)"
        R"("interface":"a","weight":1,"ttl":"uniform","tc":null,"pushTc":null,"pushTtl":null,)"
        R"("payload":"auto","mtu":null,"vlan":null,"fec":null,"vrf":null,"entropy":false}]})");
}

TEST(RouteJson, EachTableHasItsKeys) {
    const Mpls::Hardware::Route hardware{{}, 6, true};
    EXPECT_EQ(
        routeJson({Mpls::TableId::hardwareRoutes, 7, hardware}, {}),
        R"({"table":"hardware","label":7,"adjacency":6,"unprogrammed":true,"derived":false})");
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

} // namespace RouteJsonTest
