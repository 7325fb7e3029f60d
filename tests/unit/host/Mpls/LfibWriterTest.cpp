#include "Mpls/LfibWriter.h"

#include <stdexcept>

#include "LocalTables.h"
#include "TableTesting.h"

namespace LfibWriterTest {

namespace {

using namespace TableTesting;
using namespace Mpls;
using TestSupport::LocalLfib;
using TestSupport::LocalTables;

class Lfib : public testing::Test {
  protected:
    void routeIs(std::uint32_t label, const std::vector<WeightedRecord>& vias) {
        writer.routeIs(key(label), LfibViaType::ip, LfibViaSetType::unicast, vias);
    }
    LfibViaSet setOf(std::uint32_t label) const {
        return table().viaSet(table().route(key(label)).viaSetKey);
    }
    const LfibStatus& table() const { return *writer.status(); }

    LocalLfib writer{TableId::transitLfib, std::make_shared<LocalTables>(std::size_t{1} << 17U)};
};

TEST_F(Lfib, AnAbsentRouteReadsAsTheDefaultOne) {
    EXPECT_EQ(table().route(key(100)), LfibRoute());
    EXPECT_EQ(table().route(RouteKey()), LfibRoute());
    EXPECT_TRUE(table().viaSet({}).isEq(LfibViaSet(LfibViaSetKey())));
    routeIs(100, {swapVia()});
    EXPECT_EQ(table().route(key(101)), LfibRoute());
    EXPECT_EQ(table().route(key(100 + 1024)), LfibRoute()); // on a page that does not exist
}

TEST_F(Lfib, AChangeIsReadableWhenItIsReported) {
    Heard heard;
    std::vector<std::uint32_t> mtus;
    heard.onReport = [&] {
        const LfibViaSet set = setOf(100);
        mtus.push_back(set.members.empty() ? 0 : table().ipVia(set.members[0]).nexthopMtu);
    };
    table().subscribe(heard);
    routeIs(100, {swapVia(1400)});
    routeIs(100, {swapVia(1500)});
    writer.routeDel(key(100));
    writer.routeDel(key(100)); // nothing to delete, nothing to tell
    EXPECT_EQ(mtus, (std::vector<std::uint32_t>{1400, 1500, 0}));
    const Heard::Change change{LfibStatus::routeAttr, key(100).value()};
    EXPECT_EQ(heard.changes, std::vector<Heard::Change>(3, change));
    EXPECT_EQ(table().routes(), 0U);
    table().unsubscribe(heard);
}

TEST_F(Lfib, TheLowestAndTheHighestLabelHaveRoutesOfTheirOwn) {
    routeIs(0, {swapVia(1)});
    routeIs(Lumo::MplsLabel::max, {swapVia(2)});
    EXPECT_EQ(table().ipVia(setOf(0).members[0]).nexthopMtu, 1U);
    EXPECT_EQ(table().ipVia(setOf(Lumo::MplsLabel::max).members[0]).nexthopMtu, 2U);
    EXPECT_EQ(table().route(key(1)), LfibRoute());
    std::vector<std::uint64_t> labels;
    table().forEachRoute(
        [&](const LfibRoute& route) { labels.push_back(route.routeKey.topLabel().value()); });
    EXPECT_EQ(labels, (std::vector<std::uint64_t>{0, Lumo::MplsLabel::max}));
    EXPECT_EQ(table().routes(), 2U);
}

TEST_F(Lfib, ASetTellsItsMembersItsTableAndItsViaType) {
    writer.routeIs(key(100), LfibViaType::externalFec, LfibViaSetType::multicast,
                   std::vector{swapVia(1400, 3), swapVia(1500, 4)});
    const LfibViaSet set = setOf(100);
    EXPECT_EQ(set.type, LfibViaSetType::multicast);
    EXPECT_EQ(set.key, table().route(key(100)).viaSetKey);
    ASSERT_EQ(set.viaKeys.size(), 1U);
    EXPECT_EQ(set.viaKeys[0].viaType, LfibViaType::externalFec);
    ASSERT_EQ(set.members.size(), 2U);
    EXPECT_EQ(set.members[1].weight, 4U);
    EXPECT_EQ(set.source.get(), &table());
    EXPECT_TRUE(table().ipVia(set.members[1]).isEq(swapVia(1500).via));
}

TEST_F(Lfib, AnIpLookupViaHoldsTheLongestVrfName) {
    const std::string name(100, 'v');
    writer.ipLookupRouteIs(key(100), LfibViaType::ipLookupPerPrefix, std::string_view(name),
                           PayloadType::automatic);
    const LfibIpLookupVia via = table().ipLookupVia(setOf(100).viaKeys[0]);
    EXPECT_EQ(via.vrfName.view(), name);
    EXPECT_EQ(via.payloadType, PayloadType::automatic);
    EXPECT_EQ(via.viaKey.viaType, LfibViaType::ipLookupPerPrefix);
}

TEST_F(Lfib, HoldsTheLargestViaSetAndRefusesMore) {
    LocalLfib large;
    std::vector<WeightedRecord> many;
    for (std::uint32_t i = 0; i < 599; ++i) {
        many.push_back(swapVia(i, i));
    }
    large.routeIs(key(100), LfibViaType::ip, LfibViaSetType::unicast, many);
    const LfibViaSet set = large.status()->viaSet(large.status()->route(key(100)).viaSetKey);
    ASSERT_EQ(set.members.size(), 599U);
    for (std::uint32_t i = 0; i < 599; ++i) {
        ASSERT_EQ(set.members[i].weight, i);
        ASSERT_EQ(large.status()->ipVia(set.members[i]).nexthopMtu, i);
    }
    many.push_back(swapVia());
    EXPECT_THROW(large.routeIs(key(101), LfibViaType::ip, LfibViaSetType::unicast, many),
                 std::invalid_argument);
    EXPECT_EQ(large.status()->route(key(101)), LfibRoute());
}

TEST_F(Lfib, WeightsAddUpToSomethingThatFits) {
    EXPECT_THROW(routeIs(100, {}), std::invalid_argument);
    EXPECT_THROW(routeIs(100, {swapVia(1, 0), swapVia(2, 0)}), std::invalid_argument);
    EXPECT_THROW(routeIs(100, {swapVia(1, 0x80000000), swapVia(2, 0x80000000)}),
                 std::invalid_argument);
    EXPECT_EQ(table().route(key(100)), LfibRoute());
    routeIs(100, {swapVia(1, 0xffffffff), swapVia(2, 0)});
    EXPECT_EQ(setOf(100).members[0].weight, 0xffffffffU);
}

TEST_F(Lfib, UsesNoMoreThanWhatIsPublished) {
    const std::vector<WeightedRecord> many(20, swapVia());
    routeIs(100, many);
    routeIs(101, many);
    const std::size_t two = writer.usedBytes();
    writer.routeDel(key(101));
    const std::size_t one = writer.usedBytes();
    EXPECT_LT(one, two);
    routeIs(100, {swapVia()});
    EXPECT_LT(writer.usedBytes(), one);
    routeIs(100, many);
    routeIs(101, many);
    EXPECT_EQ(writer.usedBytes(), two);
}

TEST_F(Lfib, ARefusedRouteLeavesNothingBehind) {
    routeIs(100, {swapVia(1400)});
    const std::size_t used = writer.usedBytes();
    const std::uint64_t generation = writer.tables().reader->generation();
    const std::vector<WeightedRecord> many(20, swapVia());
    for (const RouteKey wrong : {RouteKey(), RouteKey::fromValue(std::uint64_t{2} << 60U)}) {
        EXPECT_THROW(writer.routeIs(wrong, LfibViaType::ip, LfibViaSetType::unicast, many),
                     std::invalid_argument);
        EXPECT_THROW(writer.ipLookupRouteIs(wrong, LfibViaType::ipLookup, "red", PayloadType::ipv4),
                     std::invalid_argument);
        EXPECT_THROW(writer.multicastIpLookupRouteIs(wrong, {}), std::invalid_argument);
        EXPECT_THROW(writer.rawRouteIs(wrong, {}), std::invalid_argument);
        EXPECT_THROW(writer.routeDel(wrong), std::invalid_argument);
    }
    EXPECT_EQ(writer.usedBytes(), used);
    EXPECT_EQ(writer.tables().reader->generation(), generation);
}

TEST_F(Lfib, ARouteThatDoesNotFitLeavesItsRoomToOthers) {
    std::uint32_t label = 0;
    const std::vector<WeightedRecord> many(100, swapVia());
    EXPECT_THROW(
        for (;; ++label) { routeIs(label, many); }, std::length_error);
    EXPECT_GT(label, 5U);
    EXPECT_EQ(table().routes(), label);
    const std::size_t used = writer.usedBytes();
    for (int i = 0; i < 10; ++i) {
        EXPECT_THROW(routeIs(label, many), std::length_error);
    }
    EXPECT_EQ(writer.usedBytes(), used);
    EXPECT_EQ(table().route(key(label)), LfibRoute());
    writer.routeDel(key(0));
    routeIs(label, many);
    EXPECT_EQ(setOf(label).members.size(), 100U);
    EXPECT_TRUE(table().ipVia(setOf(label).members[99]).isEq(many[99].via));
}

TEST_F(Lfib, TheViasOfARouteGivenAsItIsStayUnowned) {
    routeIs(100, {swapVia(1400)});
    const LfibWeightedVia owned = setOf(100).members[0];
    LfibViaSet raw;
    raw.owner = 5;
    raw.flags = 6;
    raw.viaKeys.push({1, LfibViaType::ip, 2, 3, 4});
    raw.members.push({owned.viaIndex, 9, owned.check}); // borrowed from the other route
    raw.members.push({0x7fffffff, 1, 0});               // nowhere
    writer.rawRouteIs(key(200), raw);
    LfibViaSet read = setOf(200);
    EXPECT_EQ(table().ipVia(read.members[0]).nexthopMtu, 1400U);
    EXPECT_FALSE(table().ipVia(read.members[1]));
    read.key = raw.key;
    EXPECT_TRUE(read.isEq(raw));
    writer.routeDel(key(200));
    EXPECT_EQ(table().ipVia(setOf(100).members[0]).nexthopMtu, 1400U);
    EXPECT_EQ(table().route(key(200)), LfibRoute());
}

TEST_F(Lfib, ATailAndItsBranchesShareASet) {
    LfibMulticastIpLookupVia tail;
    tail.vrfId = 7;
    writer.multicastIpLookupRouteIs(key(100), tail, std::vector{swapVia(1400, 0), swapVia(1500)});
    const LfibViaSet set = setOf(100);
    ASSERT_EQ(set.viaKeys.size(), 1U);
    EXPECT_EQ(set.type, LfibViaSetType::multicast);
    EXPECT_EQ(set.viaKeys[0].viaType, LfibViaType::multicastIpLookup);
    EXPECT_EQ(table().multicastIpLookupVia(set.viaKeys[0]), tail);
    ASSERT_EQ(set.members.size(), 3U);
    EXPECT_EQ(set.members[0].viaIndex, set.viaKeys[0].index);
    EXPECT_EQ(table().ipVia(set.members[1]).nexthopMtu, 1400U);
    EXPECT_EQ(table().ipVia(set.members[2]).nexthopMtu, 1500U);
}

TEST_F(Lfib, ATailHasAtMost598Branches) {
    LocalLfib large;
    std::vector<WeightedRecord> branches(598, swapVia());
    large.multicastIpLookupRouteIs(key(100), {}, branches);
    const LfibViaSet set = large.status()->viaSet(large.status()->route(key(100)).viaSetKey);
    EXPECT_EQ(set.members.size(), 599U);
    branches.push_back(swapVia());
    EXPECT_THROW(large.multicastIpLookupRouteIs(key(101), {}, branches), std::invalid_argument);
}

TEST_F(Lfib, ATailGivesBackWhatItTook) {
    const std::vector<WeightedRecord> branches(20, swapVia());
    routeIs(99, {swapVia()});
    const std::size_t before = writer.usedBytes();
    writer.multicastIpLookupRouteIs(key(100), {}, branches);
    const std::size_t used = writer.usedBytes();
    for (int i = 0; i < 100; ++i) {
        writer.routeDel(key(100));
        ASSERT_EQ(writer.usedBytes(), before);
        writer.multicastIpLookupRouteIs(key(100), {}, branches);
        ASSERT_EQ(writer.usedBytes(), used);
    }
}

TEST(LfibMemory, StaysSmallWithManyRoutes) {
    constexpr std::uint32_t routes = 100000;
    TestSupport::LocalTables tables;
    LfibWriter& writer = tables.publisher.lfib(TableId::transitLfib);
    const std::vector<WeightedRecord> vias{swapVia()};
    for (std::uint32_t i = 0; i < routes; ++i) {
        writer.routeIs(key(16 + i), LfibViaType::ip, LfibViaSetType::unicast, vias);
    }
    tables.commit();
    EXPECT_EQ(tables.published.lfib(TableId::transitLfib)->routes(), routes);
    EXPECT_EQ(tables.published.lfib(TableId::decapLfib)->routes(), 0U);
    EXPECT_LE(tables.publisher.tables().usedBytes() / routes, 128U);
}

} // namespace

} // namespace LfibWriterTest
