#include "tables/EntryWriting.h"

#include "CtlTables.h"

namespace EntryWritingTest {

using namespace CtlTesting;
using namespace OvixCtl;
using Mpls::TableId;

namespace {

class EntryWriting : public testing::Test {
  protected:
    /// "" or why it is refused.
    std::string change(const std::string& line) {
        std::string refused = tables.change(line);
        tables.commit();
        return refused;
    }
    std::string remove(TableId table, std::uint32_t key) {
        if (Mpls::isLfib(table)) {
            EXPECT_TRUE(tables.publisher().labelRoutes().routeDel(table, Lumo::MplsLabel(key),
                                                                  Mpls::RouteOwner::byHand));
            tables.commit();
            return "";
        }
        const auto done = removeEntry(tables.publisher(), tables.view(), table, key);
        tables.commit();
        return done ? "" : done.refused().what;
    }
    /// All entries, each as "TABLE KEY".
    std::string all() const {
        std::string found;
        const TableView view = tables.view();
        for (std::size_t i = 0; i < entryTables; ++i) {
            for (const std::uint32_t key : view.keys(static_cast<TableId>(i)).keys) {
                found += (found.empty() ? "" : ", ") +
                         std::string(Tessel::wordOf(static_cast<TableId>(i))) + " " +
                         std::to_string(key);
            }
        }
        return found;
    }

    Tables tables;
};

} // namespace

TEST_F(EntryWriting, EveryTableTakesItsEntriesAndReleasesThem) {
    for (const char* line : {"decap 100 vrf red", "pseudowire 100 dev a", "adjacency 5 dev a",
                             "hardware 100 adjacency 5", "mvpn 4294967295 vlan 7"}) {
        EXPECT_EQ(change(line), "") << line;
    }
    EXPECT_EQ(all(), "decap 100, pseudowire 100, hardware 100, adjacency 5, mvpn 4294967295");
    EXPECT_EQ(remove(TableId::mvpnIntfStatus, 4294967295), "");
    EXPECT_EQ(remove(TableId::hardwareRoutes, 100), "");
    EXPECT_EQ(remove(TableId::hardwareAdjacencies, 5), "");
    EXPECT_EQ(remove(TableId::decapLfib, 100), "");
    EXPECT_EQ(all(), "pseudowire 100");
}

TEST_F(EntryWriting, WhatATransitRouteHasProgrammedIsChangedByItAlone) {
    EXPECT_EQ(change("transit 100 dev a"), "");
    EXPECT_EQ(all(), "transit 100, hardware 100, adjacency 100");
    const std::string belongs = "it belongs to the route of label 100 in table transit; change "
                                "that one";
    EXPECT_EQ(change("adjacency 100 dev b"), belongs);
    EXPECT_EQ(remove(TableId::hardwareRoutes, 100), belongs);
    EXPECT_EQ(remove(TableId::hardwareAdjacencies, 100), "label 100 is forwarded by it");
    EXPECT_EQ(change("hardware 101 adjacency 100"),
              "adjacency 100 belongs to the route of label 100 in table transit");
    EXPECT_EQ(remove(TableId::transitLfib, 100), "");
    EXPECT_EQ(all(), "");
}

TEST_F(EntryWriting, ATransitRouteIsProgrammedAgainOnceThePlatformsOwnRouteIsRemoved) {
    EXPECT_EQ(change("adjacency 5 dev b"), "");
    EXPECT_EQ(change("transit 100 dev a"), "");
    EXPECT_EQ(change("hardware 100 adjacency 5"), "");
    EXPECT_EQ(all(), "transit 100, hardware 100, adjacency 5");
    EXPECT_EQ(remove(TableId::hardwareRoutes, 100), "");
    EXPECT_EQ(all(), "transit 100, hardware 100, adjacency 5, adjacency 100");
}

TEST_F(EntryWriting, RoutesNeedTheirAdjacencyAndAdjacenciesInUseStay) {
    EXPECT_EQ(change("hardware 100 adjacency 5"), "there is no adjacency 5");
    EXPECT_EQ(change("adjacency 5 dev b"), "");
    EXPECT_EQ(change("hardware 100 adjacency 5"), "");
    EXPECT_EQ(change("adjacency 5 dev c"), "");
    EXPECT_EQ(remove(TableId::hardwareAdjacencies, 5), "label 100 is forwarded by it");
    EXPECT_EQ(all(), "hardware 100, adjacency 5");
}

} // namespace EntryWritingTest
