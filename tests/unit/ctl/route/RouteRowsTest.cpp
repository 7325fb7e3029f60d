#include "route/RouteRows.h"

#include "CtlTables.h"

using namespace CtlTesting;
using Cells = OvixCtl::TextTable::Cells;
using OvixCtl::routeRows;

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
              (Cells{"decap", "100", "ip-lookup", "pop", "", "", "", "", "vrf=red payload=ipv4"}));
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

TEST(RouteRows, ARouteWithoutViasAndOneThatCannotBeRightStillHaveALine) {
    EXPECT_EQ(routeRows({Mpls::TableId::decapLfib, 1, OvixCtl::LfibRouteView{}}, {}).size(), 1U);
    const auto rows = routeRows({Mpls::TableId::decapLfib, 1, OvixCtl::DamagedView{"wrong"}}, {});
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0][2], "corrupt");
    EXPECT_EQ(rows[0].back(), "wrong");
}
