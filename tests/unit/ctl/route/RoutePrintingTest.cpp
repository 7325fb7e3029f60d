#include "route/RoutePrinting.h"

#include "CtlTables.h"

namespace RoutePrintingTest {

using namespace CtlTesting;
using OvixCtl::routeText;

TEST(RouteText, EveryKindOfEntryHasItsLine) {
    using namespace OvixCtl;
    Mpls::LabelRoute route;
    route.viaType = Mpls::LfibViaType::externalFec;
    route.vias = {popTo("10.0.0.1")};
    route.owner = Mpls::RouteOwner{7};
    route.flags = 1;
    EXPECT_EQ(routeText({Mpls::TableId::decapLfib, 5, route}, {}),
              "decap 5 type external-fec owner 7 flags 1 via inet 10.0.0.1");
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
    EXPECT_EQ(routeText({Mpls::TableId::mvpnIntfStatus, 8, mvpn}, {}), "mvpn 8 vlan 100");
    EXPECT_EQ(routeText({Mpls::TableId::transitLfib, 9, Damage{"it is wrong"}}, {}),
              "transit 9 corrupt: it is wrong");
}

TEST(RouteText, AnInterfaceWithoutANameIsShownByItsId) {
    const IntfText none;
    EXPECT_EQ(none.text(Lumo::IntfId::fromValue(0x0100000000000abc)), "0x0100000000000abc");
    EXPECT_EQ(none.text(Lumo::CpuIntfId::cpuIdToIntfId(2)), "cpu2");
    EXPECT_EQ(none.text({}), "");
}

} // namespace RoutePrintingTest
