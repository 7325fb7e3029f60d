#include "commands/Selection.h"

#include "CtlTables.h"

namespace SelectionTest {

using namespace CtlTesting;
using Mpls::TableId;
using OvixCtl::select;

namespace {

std::vector<std::string> selected(const Tables& tables, const std::vector<std::string>& given) {
    std::vector<std::string> names;
    const OvixCtl::ShowFilter filter = OvixCtl::parseShowFilter(given).value();
    for (std::size_t i = 0; i < OvixCtl::entryTables; ++i) {
        for (const auto& entry : select(tables.view(), filter, static_cast<TableId>(i)).entries) {
            names.push_back(std::string(Tessel::wordOf(entry.table)) + " " +
                            std::to_string(entry.key));
        }
    }
    return names;
}
using Names = std::vector<std::string>;

} // namespace

TEST(Selection, TablesAndLabelsNarrowIt) {
    Tables tables;
    tables.add("5 dev a table decap");
    tables.add("5 dev a");
    tables.add("6 dev a");
    const auto key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(5));
    tables.publisher().hardware().routeIs({key, 9, false});
    Mpls::Hardware::AdjacencyVias adjacency;
    adjacency.vias = {popTo("10.0.0.1")};
    for (const std::uint64_t id : {std::uint64_t{8}, std::uint64_t{9}}) {
        tables.publisher().hardware().adjacencyIs(id,
                                                  *Mpls::Hardware::Adjacency::create(adjacency));
    }
    tables.publisher().mvpn().vrfIntfIdIs({5}, Lumo::IntfId("a"));
    tables.commit();
    EXPECT_EQ(selected(tables, {}), (Names{"decap 5", "transit 5", "transit 6", "hardware 5",
                                           "adjacency 8", "adjacency 9", "mvpn 5"}));
    EXPECT_EQ(selected(tables, {"5"}),
              (Names{"decap 5", "transit 5", "hardware 5", "adjacency 9"}));
    EXPECT_EQ(selected(tables, {"transit"}), (Names{"transit 5", "transit 6"}));
    EXPECT_EQ(selected(tables, {"hardware"}), (Names{"hardware 5", "adjacency 8", "adjacency 9"}));
    EXPECT_EQ(selected(tables, {"adjacency"}), (Names{"adjacency 8", "adjacency 9"}));
    EXPECT_EQ(selected(tables, {"adjacency", "8"}), Names{"adjacency 8"});
    EXPECT_EQ(selected(tables, {"hardware", "5"}), (Names{"hardware 5", "adjacency 9"}));
    EXPECT_EQ(selected(tables, {"transit", "6"}), Names{"transit 6"});
    EXPECT_EQ(selected(tables, {"mvpn", "5"}), Names{"mvpn 5"});
    EXPECT_EQ(selected(tables, {"mvpn", "4294967295"}), Names{});
    EXPECT_EQ(selected(tables, {"7"}), Names{});
}

TEST(Selection, WordsThatNameNothingAreRefused) {
    for (const auto& words : {Names{"trnasit"}, Names{"adjacency", "1048576"}, Names{"1048576"},
                              Names{"transit", "x"}, Names{"5", "6"}, Names{""}}) {
        EXPECT_FALSE(OvixCtl::parseShowFilter(words)) << words[0];
    }
}

} // namespace SelectionTest
