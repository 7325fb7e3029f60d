#include "route/RouteJson.h"

#include <nlohmann/json.hpp>

#include "CtlTables.h"

using namespace CtlTesting;
using OvixCtl::routeJson;

TEST(RouteJson, EveryKeyOfAnLfibRouteIsThere) {
    const PublishedRoute route("100 as to 200 via 10.0.0.1 dev a");
    EXPECT_EQ(routeJson(route.read(), route.names()).dump(),
              R"({"table":"transit","label":100,"type":"ip","multicast":false,"lookup":null,)"
              R"("tail":null,"vias":[{"action":"swap","labels":[200],"nexthop":"10.0.0.1",)"
              R"("interface":"a","weight":1,"ttl":"uniform","tc":null,"pushTtl":null,)"
              R"("payload":"auto","mtu":null,"vlan":null,"fec":null,"vrf":null}]})");
}

TEST(RouteJson, EachTableHasItsKeys) {
    using namespace OvixCtl;
    EXPECT_EQ(routeJson({Mpls::TableId::hardwareRoutes, 7, HardwareRouteView{6, true}}, {}).dump(),
              R"({"table":"hardware","label":7,"adjacency":6,"unprogrammed":true})");
    EXPECT_EQ(routeJson({Mpls::TableId::hardwareAdjacencies, 6, AdjacencyView{}}, {}).dump(),
              R"({"table":"adjacency","id":6,"type":"0","multicast":false,"useBackups":false,)"
              R"("vias":[],"backups":[]})");
    const MvpnView mvpn{Lumo::VlanIntfId::vlanIdToIntfId(9)};
    EXPECT_EQ(routeJson({Mpls::TableId::mvpnIntfStatus, 8, mvpn}, {}).dump(),
              R"({"table":"mvpn","vrfId":8,"interface":"vlan9"})");
    EXPECT_EQ(routeJson({Mpls::TableId::decapLfib, 5, DamagedView{"wrong"}}, {}).dump(),
              R"({"table":"decap","label":5,"corrupt":"wrong"})");
}

TEST(RouteJson, ALookUpIsAnObject) {
    const PublishedRoute route("100 vrf red");
    const auto json = routeJson(route.read(), {});
    EXPECT_EQ(json["lookup"].dump(), R"({"vrf":"red","payload":"auto"})");
    EXPECT_TRUE(json["vias"].empty());
}
