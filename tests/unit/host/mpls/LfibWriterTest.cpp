#include "Mpls/LfibWriter.h"

#include <stdexcept>

#include "TableTesting.h"

namespace {

using namespace TableTesting;
using namespace Mpls;

class Lfib : public testing::Test {
  protected:
    void routeIs(std::uint32_t label, const std::vector<WeightedVia>& vias) {
        writer.routeIs(key(label), LfibViaType::ip, LfibViaSetType::unicast, vias);
    }
    LfibViaSet setOf(std::uint32_t label) const {
        return table().viaSet(table().route(key(label)).viaSetKey);
    }
    const LfibStatus& table() const { return *writer.status(); }
    std::uint32_t heapUnits() const {
        return reinterpret_cast<const LfibLayout::Header*>(writer.memory().data())->heapUnits;
    }

    LfibWriter writer{"lfib", std::size_t{1} << 16U};
};

TEST_F(Lfib, AChangeIsReadableWhenItIsTold) {
    Heard heard;
    std::vector<std::uint32_t> mtus;
    heard.whenTold = [&] {
        const LfibViaSet set = setOf(100);
        mtus.push_back(set.members.empty() ? 0 : table().ipVia(set.members[0].viaIndex).nexthopMtu);
    };
    table().subscribe(heard);
    routeIs(100, {swapVia(1400)});
    routeIs(100, {swapVia(1500)});
    writer.routeDel(key(100));
    writer.routeDel(key(100)); // nothing to delete, nothing to tell
    EXPECT_EQ(mtus, (std::vector<std::uint32_t>{1400, 1500, 0}));
    const Heard::Change change{LfibStatus::routeAttr, key(100).value()};
    EXPECT_EQ(heard.changes, std::vector<Heard::Change>(3, change));
    table().unsubscribe(heard);
}

TEST_F(Lfib, TheLowestAndTheHighestLabelHaveRoutesOfTheirOwn) {
    routeIs(0, {swapVia(1)});
    routeIs(Lumo::MplsLabel::max, {swapVia(2)});
    EXPECT_EQ(table().ipVia(setOf(0).members[0].viaIndex).nexthopMtu, 1U);
    EXPECT_EQ(table().ipVia(setOf(Lumo::MplsLabel::max).members[0].viaIndex).nexthopMtu, 2U);
    EXPECT_EQ(table().route(key(1)), LfibRoute());
    EXPECT_EQ(table().routes(), 2U);
}

TEST_F(Lfib, AnotherReaderOfTheMemorySeesEveryChange) {
    const auto reader = Tessel::make<LfibStatus>("reader", writer.memory());
    routeIs(100, {swapVia(1400, 3), swapVia(1500, 4)});
    const LfibViaSet set = reader->viaSet(reader->route(key(100)).viaSetKey);
    ASSERT_EQ(set.members.size(), 2U);
    EXPECT_EQ(set.members[1].weight, 4U);
    EXPECT_EQ(set.source.get(), reader.get());
    EXPECT_TRUE(reader->ipVia(set.members[1].viaIndex).isEq(swapVia(1500).via));
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

TEST_F(Lfib, UsesNoMoreThanWhatIsPublished) {
    const std::size_t empty = writer.usedBytes();
    const std::vector<WeightedVia> many(20, swapVia());
    routeIs(100, many);
    const std::size_t one = writer.usedBytes();
    EXPECT_GT(one, empty);
    routeIs(100, many);
    EXPECT_EQ(writer.usedBytes(), one);
    writer.routeDel(key(100));
    EXPECT_EQ(writer.usedBytes(), empty);
}

TEST_F(Lfib, ARefusedRouteLeavesNothingBehind) {
    routeIs(100, {swapVia(1400)});
    const std::size_t used = writer.usedBytes();
    const std::uint32_t units = heapUnits();
    const std::vector<WeightedVia> many(20, swapVia());
    EXPECT_THROW(writer.routeIs(RouteKey(), LfibViaType::ip, LfibViaSetType::unicast, many),
                 std::invalid_argument);
    EXPECT_THROW(
        writer.ipLookupRouteIs(RouteKey(), LfibViaType::ipLookup, "red", PayloadType::ipv4),
        std::invalid_argument);
    EXPECT_THROW(routeIs(101, {}), std::invalid_argument);
    EXPECT_EQ(writer.usedBytes(), used);
    EXPECT_EQ(heapUnits(), units);
}

TEST_F(Lfib, ARouteThatDoesNotFitLeavesItsRoomToOthers) {
    std::uint32_t label = 0;
    const std::vector<WeightedVia> many(100, swapVia());
    EXPECT_THROW(
        for (;; ++label) { routeIs(label, many); }, std::length_error);
    const std::size_t used = writer.usedBytes();
    for (int i = 0; i < 10; ++i) {
        EXPECT_THROW(routeIs(label, many), std::length_error);
    }
    EXPECT_EQ(writer.usedBytes(), used);
    EXPECT_EQ(table().route(key(label)), LfibRoute());
    writer.routeDel(key(0));
    routeIs(label, many);
    EXPECT_EQ(setOf(label).members.size(), 100U);
}

TEST_F(Lfib, TheViasOfARouteGivenAsItIsStayUnowned) {
    routeIs(100, {swapVia(1400)});
    LfibViaSet raw;
    raw.origin = 5;
    raw.flags = 6;
    raw.viaKeys.push({1, LfibViaType::ip, 2, 3, 4});
    raw.members.push({setOf(100).members[0].viaIndex, 0, 9}); // borrowed from the other route
    raw.members.push({0x7fffffff, 1, 0});                     // nowhere
    writer.rawRouteIs(key(200), raw);
    LfibViaSet read = setOf(200);
    read.key = raw.key;
    EXPECT_TRUE(read.isEq(raw));
    writer.routeDel(key(200));
    EXPECT_EQ(table().ipVia(setOf(100).members[0].viaIndex).nexthopMtu, 1400U);
    EXPECT_EQ(table().route(key(200)), LfibRoute());
}

TEST(LfibMemory, StaysSmallWithManyRoutes) {
    constexpr std::uint32_t routes = 100000;
    LfibWriter writer("lfib");
    const std::vector<WeightedVia> vias{swapVia()};
    for (std::uint32_t i = 0; i < routes; ++i) {
        writer.routeIs(key(16 + i), LfibViaType::ip, LfibViaSetType::unicast, vias);
    }
    EXPECT_EQ(writer.status()->routes(), routes);
    EXPECT_LE(writer.usedBytes() / routes, 128U);
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
    EXPECT_EQ(table().ipVia(set.members[1].viaIndex).nexthopMtu, 1400U);
    EXPECT_EQ(table().ipVia(set.members[2].viaIndex).nexthopMtu, 1500U);
}

TEST_F(Lfib, ATailGivesBackWhatItTook) {
    const std::vector<WeightedVia> branches(20, swapVia());
    writer.multicastIpLookupRouteIs(key(100), {}, branches);
    const std::uint32_t used = heapUnits();
    for (int i = 0; i < 10; ++i) {
        writer.routeDel(key(100));
        writer.multicastIpLookupRouteIs(key(100), {}, branches);
    }
    EXPECT_EQ(heapUnits(), used);
    const std::size_t bytes = writer.usedBytes();
    const std::vector<WeightedVia> tooMany(598, swapVia());
    EXPECT_THROW(
        for (std::uint32_t label = 200;; ++label) {
            writer.multicastIpLookupRouteIs(key(label), {}, tooMany);
            writer.routeDel(key(label));
            writer.routeIs(key(label), LfibViaType::ip, LfibViaSetType::unicast, tooMany);
        },
        std::length_error);
    EXPECT_GE(writer.usedBytes(), bytes);
    EXPECT_EQ(setOf(100).members.size(), 21U);
}

} // namespace
