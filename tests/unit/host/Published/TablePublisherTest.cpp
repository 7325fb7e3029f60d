#include "Published/TablePublisher.h"

#include <gtest/gtest.h>

#include "LocalTables.h"
#include "TableTesting.h"

namespace TablePublisherTest {

namespace {

using TableTesting::key;

class TransitRoutes : public testing::Test {
  protected:
    bool isInLfib(std::uint32_t label) const {
        return static_cast<bool>(
            tables.published.lfib(Mpls::TableId::transitLfib)->route(key(label)).viaSetKey.value);
    }
    const Mpls::Hardware::Status& hardware() const { return *tables.published.hardware(); }

    TestSupport::LocalTables tables;
    static Mpls::WeightedVia via(std::uint32_t mtu, std::uint32_t weight) {
        Mpls::ViaOptions options;
        options.intf = Lumo::IntfId("east");
        options.mtu = mtu;
        return {Mpls::Via::pop(options).value(), weight};
    }
    void routeIs(std::uint32_t label, const std::vector<Mpls::WeightedVia>& toVias) {
        Mpls::LabelRoute route;
        route.label = Lumo::MplsLabel(label);
        route.vias = toVias;
        EXPECT_TRUE(Mpls::transitRouteIs(tables.publisher, route));
    }
    const std::vector<Mpls::WeightedVia> vias{via(1400, 1), via(1500, 4)};
};

} // namespace

TEST_F(TransitRoutes, ALabelStandsInTheLfibAndIsProgrammedWithAnAdjacencyOfItsOwnNumber) {
    routeIs(1000, vias);
    tables.commit();
    EXPECT_TRUE(isInLfib(1000));
    const Mpls::Hardware::Route route = hardware().route(key(1000));
    EXPECT_EQ(route.adjacencyKey, 1000U);
    EXPECT_FALSE(route.unprogrammed);
    const auto& adjacency = hardware().adjacency(route);
    ASSERT_TRUE(adjacency);
    ASSERT_EQ(adjacency->entries(false).size(), 2U);
    EXPECT_EQ(adjacency->entries(false)[1].weight, 4U);
    EXPECT_TRUE(adjacency->via(false, 1).isEq(vias[1].via.record()));
}

TEST_F(TransitRoutes, ARouteThatTheTablesRefuseIsRefused) {
    Mpls::LabelRoute route;
    route.label = Lumo::MplsLabel(1000);
    route.vias = {via(1400, 0)};
    const auto refused = Mpls::transitRouteIs(tables.publisher, route);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.refused().what, "the weights of the vias add up to 0");
}

TEST_F(TransitRoutes, AnotherRouteOfTheLabelTakesItsPlace) {
    routeIs(1000, vias);
    tables.commit();
    routeIs(1000, {vias[0]});
    tables.commit();
    EXPECT_EQ(hardware().routes(), 1U);
    EXPECT_EQ(hardware().adjacencies(), 1U);
    EXPECT_EQ(hardware().adjacency(1000)->entries(false).size(), 1U);
}

TEST_F(TransitRoutes, ALabelThatGoesLeavesNothing) {
    routeIs(1000, vias);
    routeIs(1001, vias);
    tables.commit();
    EXPECT_TRUE(Mpls::transitRouteDel(tables.publisher, key(1000)));
    EXPECT_FALSE(Mpls::transitRouteDel(tables.publisher, key(1000)));
    tables.commit();
    EXPECT_FALSE(isInLfib(1000));
    EXPECT_EQ(hardware().route(key(1000)).routeKey, Mpls::RouteKey());
    EXPECT_FALSE(hardware().adjacency(1000));
    EXPECT_TRUE(isInLfib(1001));
    EXPECT_EQ(hardware().routes(), 1U);
    EXPECT_EQ(hardware().adjacencies(), 1U);
}

TEST_F(TransitRoutes, WhereThereIsNoRouteNothingIsChanged) {
    tables.publisher.hardware().adjacencyIs(
        7, *Mpls::Hardware::Adjacency::create({{}, {}, false, vias, {}}));
    tables.publisher.hardware().routeIs({key(7), 7, false});
    tables.commit();
    const std::uint64_t generation = tables.reader->generation();
    EXPECT_FALSE(Mpls::transitRouteDel(tables.publisher, key(7)));
    tables.commit();
    EXPECT_EQ(tables.reader->generation(), generation);
    EXPECT_TRUE(hardware().adjacency(7));
}

} // namespace TablePublisherTest
