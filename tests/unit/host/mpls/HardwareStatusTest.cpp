#include <stdexcept>

#include "Mpls/Hardware/Status.h"
#include "TableTesting.h"
#include "Tessel/Exceptions.h"

namespace {

using namespace TableTesting;
using namespace Mpls;
using Hardware::Adjacency;
using Hardware::Route;
using Hardware::Status;

Ptr<const Adjacency> adjacencyOf(std::span<const WeightedVia> vias,
                                 std::span<const WeightedVia> backups = {}) {
    return Adjacency::create(vias, backups, false);
}

TEST(HardwareStatus, ARouteIsAbsentPresentChangedAndAbsentAgain) {
    Status status;
    EXPECT_TRUE(status.route(key(100)).isEq(Route()));
    status.routeIs({key(100), 7, true});
    EXPECT_TRUE(status.route(key(100)).isEq({key(100), 7, true}));
    EXPECT_TRUE(status.route(key(101)).isEq(Route()));
    status.routeIs({key(100), 8, false});
    EXPECT_TRUE(status.route(key(100)).isEq({key(100), 8, false}));
    EXPECT_EQ(status.routes(), 1U);
    status.routeDel(key(100));
    EXPECT_TRUE(status.route(key(100)).isEq(Route()));
    EXPECT_EQ(status.routes(), 0U);
}

TEST(HardwareStatus, PublishesEachChangeUnderItsKey) {
    Status status;
    Heard heard;
    status.subscribe(heard);
    status.routeIs({key(100), 7, true});
    status.routeIs({key(100), 7, true}); // no change
    status.routeIs({key(100), 7, false});
    status.adjacencyIs(7, adjacencyOf({}));
    status.adjacencyDel(7);
    status.adjacencyDel(7); // no change
    status.routeDel(key(100));
    status.routeDel(key(100)); // no change
    const std::vector<Heard::Change> expected = {
        {Status::routeAttr, key(100).value()},
        {Status::routeAttr, key(100).value()},
        {Status::adjacencyAttr, 7},
        {Status::adjacencyAttr, 7},
        {Status::routeAttr, key(100).value()},
    };
    EXPECT_EQ(heard.changes, expected);
    status.unsubscribe(heard);
}

TEST(HardwareStatus, TheAllOnesKeyIsReserved) {
    constexpr std::uint64_t allOnes = ~std::uint64_t{0};
    Status status;
    status.adjacencyIs(1, adjacencyOf({}));
    status.routeIs({key(100), 1, false});
    EXPECT_THROW(status.adjacencyIs(allOnes, adjacencyOf({})), Tessel::RangeError);
    EXPECT_FALSE(status.adjacency(allOnes));
    EXPECT_TRUE(status.route(RouteKey::fromValue(allOnes)).isEq(Route()));
    status.routeDel(RouteKey::fromValue(allOnes));
    status.adjacencyDel(allOnes);
    EXPECT_EQ(status.routes(), 1U);
    EXPECT_TRUE(status.adjacency(1));
}

TEST(HardwareStatus, ADeletedAdjacencyLivesAsLongAsItIsHeld) {
    Status status;
    const std::vector<WeightedVia> vias{swapVia(1234)};
    status.adjacencyIs(1, adjacencyOf(vias));
    const auto held = status.adjacency(1);
    EXPECT_EQ(held->references(), 2U);
    status.adjacencyDel(1);
    EXPECT_FALSE(status.adjacency(1));
    EXPECT_EQ(held->references(), 1U);
    EXPECT_EQ(held->via(false, 0).nexthopMtu, 1234U);
}

TEST(HardwareStatus, StaysSmallWithManyRoutes) {
    constexpr std::uint32_t routes = 100000;
    Status status;
    const std::vector<WeightedVia> vias{swapVia()};
    for (std::uint32_t i = 0; i < routes; ++i) { // without reserving: as routes come in
        status.adjacencyIs(i + 1, adjacencyOf(vias));
        status.routeIs({key(16 + i), i + 1, false});
    }
    EXPECT_LE(status.usedBytes() / routes, 128U);
    EXPECT_EQ(status.route(key(16 + routes - 1)).adjacencyKey, routes);
}

TEST(Adjacency, KeepsViasAndBackupsApart) {
    std::vector<WeightedVia> vias;
    std::vector<WeightedVia> backups;
    for (std::uint32_t i = 0; i < fields().size(); ++i) {
        vias.push_back({{}, i});
        fields()[i].change(vias.back().via);
        backups.push_back(swapVia(2000 + i, 100 + i));
        fields()[i].change(backups.back().via);
    }
    backups.push_back(swapVia(9000, 1));
    const auto adjacency =
        Adjacency::create(vias, backups, true, LfibViaType::externalFec, LfibViaSetType::multicast);
    EXPECT_TRUE(adjacency->useBackups());
    EXPECT_EQ(adjacency->viaType(), LfibViaType::externalFec);
    EXPECT_EQ(adjacency->setType(), LfibViaSetType::multicast);
    for (const bool backup : {false, true}) {
        const std::vector<WeightedVia>& list = backup ? backups : vias;
        ASSERT_EQ(adjacency->entries(backup).size(), list.size());
        for (std::uint32_t i = 0; i < list.size(); ++i) {
            EXPECT_TRUE(adjacency->via(backup, i).isEq(list[i].via)) << backup << " " << i;
            EXPECT_EQ(adjacency->entries(backup)[i].intf, list[i].via.intfId);
            EXPECT_EQ(adjacency->entries(backup)[i].weight, list[i].weight);
        }
    }
}

TEST(Adjacency, RefusesTooManyViasAndTooMuchWeight) {
    const std::vector<WeightedVia> largest(599, swapVia());
    const std::vector<WeightedVia> tooMany(600, swapVia());
    EXPECT_EQ(adjacencyOf(largest, largest)->entries(true).size(), 599U);
    EXPECT_THROW(adjacencyOf(tooMany), std::invalid_argument);
    EXPECT_THROW(adjacencyOf({}, tooMany), std::invalid_argument);
    std::vector<WeightedVia> heavy{swapVia(1, 0xffffffff), swapVia(1, 0)};
    EXPECT_EQ(adjacencyOf(heavy)->entries(false)[0].weight, 0xffffffffU);
    heavy[1].weight = 1;
    EXPECT_THROW(adjacencyOf(heavy), std::invalid_argument);
    EXPECT_THROW(adjacencyOf({}, heavy), std::invalid_argument);
}

} // namespace
