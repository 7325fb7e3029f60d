#include "tables/TableView.h"

#include "CtlTables.h"
#include "commands/Selection.h"
#include "route/UsageError.h"

using namespace CtlTesting;
using Mpls::TableId;
using OvixCtl::select;

namespace {

std::vector<std::string> selected(const Tables& tables, const std::vector<std::string>& given) {
    std::vector<std::string> names;
    for (const auto& entry : select(tables.view(), OvixCtl::parseShowFilter(given)).entries) {
        names.push_back(std::string(OvixCtl::nameOf(entry.table)) + " " +
                        std::to_string(entry.key));
    }
    return names;
}
using Names = std::vector<std::string>;

std::uint64_t* wordsOf(Tables& tables) {
    return reinterpret_cast<std::uint64_t*>(tables.publisher().tables().memory().data());
}

} // namespace

TEST(TableView, ARecordThatCannotBeRightIsShownAsSuchAndTheOthersAreFine) {
    Tables tables;
    tables.add("1 dev a");
    tables.add("2 dev a");
    tables.commit();
    const auto ref = tables.local.reader->entry(static_cast<std::size_t>(TableId::transitLfib), 1);
    wordsOf(tables)[ref.unit() + 1] ^= 1;
    const auto view = tables.view();
    EXPECT_TRUE(view.has(TableId::transitLfib, 1));
    EXPECT_TRUE(view.entry(TableId::transitLfib, 1).isDamaged());
    EXPECT_FALSE(view.entry(TableId::transitLfib, 2).isDamaged());
}

TEST(TableView, AViaThatCannotBeRightMakesItsRouteOneToo) {
    Tables tables;
    tables.add("1 dev a");
    tables.commit();
    const auto ref = tables.local.reader->entry(static_cast<std::size_t>(TableId::transitLfib), 1);
    const auto head = tables.local.reader->headOf(ref, "");
    wordsOf(tables)[ref.unit() + head.units - 1U] ^= 1; // the via stands behind its set
    const auto route = tables.view().entry(TableId::transitLfib, 1);
    ASSERT_TRUE(route.isDamaged());
    EXPECT_NE(std::get<OvixCtl::DamagedView>(route.content).what.find("IP via"), std::string::npos);
}

TEST(TableView, APageThatCannotBeRightHidesNoOtherPage) {
    Tables tables;
    tables.add("1 dev a");
    tables.add("5000 dev a");
    tables.commit();
    const auto table = static_cast<std::size_t>(TableId::transitLfib);
    wordsOf(tables)[tables.local.reader->root().tables[table].directory] ^= 1; // its first page
    const auto keys = tables.view().keys(TableId::transitLfib);
    EXPECT_EQ(keys.keys, std::vector<std::uint32_t>{5000});
    EXPECT_EQ(keys.damage.size(), 1U);
}

TEST(TableView, MulticastVpnsAreKnownByVrf) {
    Tables tables;
    tables.publisher().mvpn().vrfIntfIdIs({4'000'000'000U}, Lumo::IntfId("a"));
    tables.publisher().mvpn().vrfIntfIdIs({7}, Lumo::IntfId("b"));
    tables.commit();
    const auto view = tables.view();
    EXPECT_EQ(view.keys(TableId::mvpnIntfStatus).keys,
              (std::vector<std::uint32_t>{7, 4'000'000'000U}));
    const auto entry = view.entry(TableId::mvpnIntfStatus, 4'000'000'000U);
    EXPECT_EQ(std::get<OvixCtl::MvpnView>(entry.content).intf, Lumo::IntfId("a"));
}

TEST(Selection, TablesAndLabelsNarrowIt) {
    Tables tables;
    tables.add("5 dev a table decap");
    tables.add("5 dev a");
    tables.add("6 dev a");
    const auto key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(5));
    tables.publisher().hardware().routeIs({key, 9, false});
    const std::vector<Mpls::WeightedVia> vias{{via(Lumo::MplsLabelAction::pop, "10.0.0.1"), 1}};
    for (const std::uint64_t id : {std::uint64_t{8}, std::uint64_t{9}}) {
        tables.publisher().hardware().adjacencyIs(
            id, *Mpls::Hardware::Adjacency::create(vias, {}, false));
    }
    tables.publisher().mvpn().vrfIntfIdIs({5}, Lumo::IntfId("a"));
    tables.commit();
    EXPECT_EQ(selected(tables, {}), (Names{"decap 5", "transit 5", "transit 6", "hardware 5",
                                           "adjacency 8", "adjacency 9", "mvpn 5"}));
    EXPECT_EQ(selected(tables, {"5"}),
              (Names{"decap 5", "transit 5", "hardware 5", "adjacency 9"}));
    EXPECT_EQ(selected(tables, {"transit"}), (Names{"transit 5", "transit 6"}));
    EXPECT_EQ(selected(tables, {"hardware"}), (Names{"hardware 5", "adjacency 8", "adjacency 9"}));
    EXPECT_EQ(selected(tables, {"transit", "6"}), Names{"transit 6"});
    EXPECT_EQ(selected(tables, {"mvpn", "5"}), Names{"mvpn 5"});
    EXPECT_EQ(selected(tables, {"mvpn", "4294967295"}), Names{});
    EXPECT_EQ(selected(tables, {"7"}), Names{});
}

TEST(Selection, WordsThatNameNothingAreRefused) {
    for (const auto& words : {Names{"trnasit"}, Names{"adjacency"}, Names{"1048576"},
                              Names{"transit", "x"}, Names{"5", "6"}, Names{""}}) {
        EXPECT_THROW(OvixCtl::parseShowFilter(words), OvixCtl::UsageError) << words[0];
    }
}
