#include "tables/TableView.h"

#include "CtlTables.h"

namespace TableViewTest {

using namespace CtlTesting;
using Mpls::TableId;

namespace {

std::uint64_t* wordsOf(Tables& tables) {
    return reinterpret_cast<std::uint64_t*>(tables.publisher().tables().memory().data());
}

} // namespace

TEST(TableView, ADamagedRecordIsReportedAndTheOthersAreRead) {
    Tables tables;
    tables.add("1 dev a");
    tables.add("2 dev a");
    tables.commit();
    const auto ref = tables.local.reader->entry(static_cast<std::size_t>(TableId::transitLfib), 1);
    wordsOf(tables)[ref.unit() + 1] ^= 1;
    const auto view = tables.view();
    EXPECT_TRUE(view.has(TableId::transitLfib, 1));
    EXPECT_NE(view.entry(TableId::transitLfib, 1).damage(), nullptr);
    EXPECT_EQ(view.entry(TableId::transitLfib, 2).damage(), nullptr);
}

TEST(TableView, ADamagedViaIsDamageOfItsRoute) {
    Tables tables;
    tables.add("1 dev a");
    tables.commit();
    const auto ref = tables.local.reader->entry(static_cast<std::size_t>(TableId::transitLfib), 1);
    const auto head = tables.local.reader->headOf(ref, "");
    wordsOf(tables)[ref.unit() + head.units - 1U] ^= 1; // the via stands behind its set
    const auto route = tables.view().entry(TableId::transitLfib, 1);
    ASSERT_NE(route.damage(), nullptr);
    EXPECT_NE(route.damage()->what.find("IP via"), std::string::npos);
}

TEST(TableView, ADamagedPageHidesNoOtherPage) {
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
    EXPECT_EQ(std::get<Routing::Multicast::MvpnVrfIntfId>(entry.content).intfId, Lumo::IntfId("a"));
}

} // namespace TableViewTest
