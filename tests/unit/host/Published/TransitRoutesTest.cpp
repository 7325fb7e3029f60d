#include "Published/TransitRoutes.h"

#include <gtest/gtest.h>

#include "LocalTables.h"
#include "TableTesting.h"

namespace TransitRoutesTest {

namespace {

using Mpls::Hardware::Route;
using TableTesting::key;
using TableTesting::swapVia;
using TableTesting::transitRoute;

class TransitRoutes : public testing::Test {
  protected:
    bool isInLfib(std::uint32_t label) const {
        return static_cast<bool>(
            tables.published.lfib(Mpls::TableId::transitLfib)->route(key(label)).viaSetKey.value);
    }
    const Mpls::Hardware::Status& hardware() const { return *tables.published.hardware(); }

    void add(std::uint32_t label, const std::vector<Mpls::WeightedRecord>& to) {
        ASSERT_TRUE(Mpls::transitRouteIs(tables.publisher, transitRoute(label, to)));
        tables.commit();
    }
    /// A route of the platform's own.
    void addPlatformRoute(std::uint32_t label, std::uint32_t adjacency) {
        tables.publisher.hardware().adjacencyIs(
            adjacency, *Mpls::Hardware::Adjacency::create(vias, {}, false));
        Mpls::platformRouteIs(tables.publisher, {key(label), adjacency, false});
        tables.commit();
    }
    bool del(std::uint32_t label) {
        const bool found = Mpls::transitRouteDel(tables.publisher, key(label));
        tables.commit();
        return found;
    }

    TestSupport::LocalTables tables;
    const std::vector<Mpls::WeightedRecord> vias{swapVia(1400, 1), swapVia(1500, 4)};
    const std::vector<Mpls::WeightedRecord> one{swapVia(1400, 1)};
};

} // namespace

TEST_F(TransitRoutes, ALabelIsInTheLfibAndProgrammedWithAnAdjacencyOfItsOwnNumber) {
    add(1000, vias);
    EXPECT_TRUE(isInLfib(1000));
    const Route route = hardware().route(key(1000));
    EXPECT_EQ(route, (Route{key(1000), 1000, false, true}));
    const auto& adjacency = hardware().adjacency(route);
    ASSERT_TRUE(adjacency);
    ASSERT_EQ(adjacency->entries(false).size(), 2U);
    EXPECT_EQ(adjacency->entries(false)[1].weight, 4U);
    EXPECT_TRUE(adjacency->via(false, 1).isEq(vias[1].via));
}

TEST_F(TransitRoutes, AnotherRouteOfTheLabelTakesItsPlace) {
    add(1000, vias);
    add(1000, one);
    EXPECT_EQ(hardware().routes(), 1U);
    EXPECT_EQ(hardware().adjacencies(), 1U);
    EXPECT_EQ(hardware().adjacency(1000)->entries(false).size(), 1U);
}

TEST_F(TransitRoutes, ALabelThatIsRemovedLeavesNothing) {
    add(1000, vias);
    add(1001, vias);
    EXPECT_TRUE(del(1000));
    EXPECT_FALSE(del(1000));
    EXPECT_FALSE(isInLfib(1000));
    EXPECT_EQ(hardware().route(key(1000)), Route());
    EXPECT_FALSE(hardware().adjacency(1000));
    EXPECT_TRUE(isInLfib(1001));
    EXPECT_EQ(hardware().routes(), 1U);
    EXPECT_EQ(hardware().adjacencies(), 1U);
}

TEST_F(TransitRoutes, WhereThereIsNoRouteNothingIsChanged) {
    addPlatformRoute(7, 7);
    const std::uint64_t generation = tables.reader->generation();
    EXPECT_FALSE(del(7));
    EXPECT_EQ(tables.reader->generation(), generation);
    EXPECT_TRUE(hardware().adjacency(7));
}

TEST_F(TransitRoutes, AnIdThatAnAdjacencyOfThePlatformHasIsNotTaken) {
    addPlatformRoute(7, 1000);
    add(1000, one);
    constexpr std::uint32_t highest = Tessel::TableLayout::maxKey;
    EXPECT_EQ(hardware().route(key(1000)), (Route{key(1000), highest, false, true}));
    EXPECT_EQ(hardware().adjacency(1000)->entries(false).size(), 2U);
    EXPECT_EQ(hardware().adjacency(highest)->entries(false).size(), 1U);
    add(1000, vias); // stays with the id that it has
    EXPECT_EQ(hardware().adjacencies(), 2U);
    EXPECT_EQ(hardware().adjacency(highest)->entries(false).size(), 2U);
    EXPECT_TRUE(del(1000));
    EXPECT_FALSE(hardware().adjacency(highest));
    EXPECT_EQ(hardware().route(key(7)), (Route{key(7), 1000, false, false}));
    EXPECT_TRUE(hardware().adjacency(1000));
}

TEST_F(TransitRoutes, ThePlatformsOwnRouteForTheLabelWins) {
    addPlatformRoute(1000, 5);
    add(1000, one);
    EXPECT_TRUE(isInLfib(1000));
    EXPECT_EQ(hardware().route(key(1000)), (Route{key(1000), 5, false, false}));
    EXPECT_EQ(hardware().adjacencies(), 1U);
    EXPECT_TRUE(del(1000));
    EXPECT_EQ(hardware().route(key(1000)), (Route{key(1000), 5, false, false}));
    EXPECT_TRUE(hardware().adjacency(5));
}

TEST_F(TransitRoutes, ThePlatformsOwnRouteReplacesADerivedOne) {
    add(1000, one);
    addPlatformRoute(1000, 5);
    EXPECT_EQ(hardware().route(key(1000)), (Route{key(1000), 5, false, false}));
    EXPECT_FALSE(hardware().adjacency(1000));
    EXPECT_TRUE(isInLfib(1000));
}

TEST_F(TransitRoutes, RoutesThatEndHereAreRefused) {
    Mpls::LabelRoute tail;
    tail.label = Lumo::MplsLabel(1000);
    tail.tail.emplace();
    Mpls::LabelRoute lookUp = transitRoute(1000, one);
    lookUp.vias.push_back(
        {Mpls::Via::popAndLookUp("red", Mpls::PayloadType::automatic).value(), 1});
    EXPECT_EQ(Mpls::transitRouteIs(tables.publisher, tail).refused().what,
              "a route with tail ends here and cannot be in table transit");
    EXPECT_EQ(Mpls::transitRouteIs(tables.publisher, lookUp).refused().what,
              "a route with vrf ends here and cannot be in table transit");
    tables.commit();
    EXPECT_FALSE(isInLfib(1000));
    EXPECT_EQ(hardware().routes(), 0U);
}

} // namespace TransitRoutesTest
