#include "Mpls/Hardware/Status.h"

#include <stdexcept>

#include "LocalTables.h"
#include "TableTesting.h"

namespace StatusTest {

namespace {

using namespace TableTesting;
using namespace Mpls;
using Hardware::Adjacency;
using Hardware::Route;
using Hardware::Status;
using TestSupport::LocalHardware;

Ptr<const Adjacency> adjacencyOf(std::span<const WeightedRecord> vias,
                                 std::span<const WeightedRecord> backups = {}) {
    return Adjacency::create(vias, backups, false);
}

TEST(HardwareStatus, ARouteIsAbsentPresentChangedAndAbsentAgain) {
    LocalHardware writer;
    const Status& status = *writer;
    EXPECT_TRUE(status.route(key(100)).isEq(Route()));
    EXPECT_TRUE(status.route(RouteKey()).isEq(Route()));
    writer.routeIs({key(100), 7, true});
    EXPECT_TRUE(status.route(key(100)).isEq({key(100), 7, true}));
    EXPECT_TRUE(status.route(key(101)).isEq(Route()));
    writer.routeIs({key(100), 8, false});
    EXPECT_TRUE(status.route(key(100)).isEq({key(100), 8, false}));
    EXPECT_EQ(status.routes(), 1U);
    writer.routeDel(key(100));
    EXPECT_TRUE(status.route(key(100)).isEq(Route()));
    EXPECT_EQ(status.routes(), 0U);
}

TEST(HardwareStatus, PublishesEachChangeUnderItsKey) {
    LocalHardware writer;
    const Status& status = *writer;
    Heard heard;
    status.subscribe(heard);
    writer.routeIs({key(100), 7, true});
    writer.routeIs({key(100), 7, true}); // no change
    writer.routeIs({key(100), 7, false});
    writer.adjacencyIs(7, adjacencyOf({}));
    writer.adjacencyIs(7, adjacencyOf({})); // no change
    writer.adjacencyDel(7);
    writer.adjacencyDel(7); // no change
    writer.routeDel(key(100));
    writer.routeDel(key(100)); // no change
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

TEST(HardwareStatus, KeysAreNumbersOf20BitsAndRoutesOfOneLabel) {
    constexpr std::uint64_t most = (1U << 20U) - 1;
    const std::vector<WeightedRecord> vias{swapVia(1234)};
    LocalHardware writer;
    const Status& status = *writer;
    writer.adjacencyIs(0, adjacencyOf({}));
    writer.adjacencyIs(most, adjacencyOf(vias));
    writer.routeIs({key(100), most, false});
    EXPECT_EQ(status.adjacency(status.route(key(100)))->via(false, 0).nexthopMtu, 1234U);
    EXPECT_EQ(status.adjacencies(), 2U);
    for (const std::uint64_t tooLarge : {most + 1, ~std::uint64_t{0}}) {
        EXPECT_THROW(writer.adjacencyIs(tooLarge, adjacencyOf({})), std::invalid_argument);
        EXPECT_THROW(writer.routeIs({key(101), tooLarge, false}), std::invalid_argument);
        EXPECT_FALSE(status.adjacency(tooLarge));
        EXPECT_NO_THROW(writer.adjacencyDel(tooLarge));
    }
    for (const RouteKey wrong : {RouteKey(), RouteKey::fromValue(~std::uint64_t{0})}) {
        EXPECT_THROW(writer.routeIs({wrong, 1, false}), std::invalid_argument);
        EXPECT_THROW(writer.routeDel(wrong), std::invalid_argument);
        EXPECT_TRUE(status.route(wrong).isEq(Route()));
    }
    EXPECT_EQ(status.routes(), 1U);
    EXPECT_EQ(status.adjacencies(), 2U);
}

TEST(HardwareStatus, ADeletedAdjacencyLivesAsLongAsItIsHeld) {
    LocalHardware writer;
    const Status& status = *writer;
    const std::vector<WeightedRecord> vias{swapVia(1234)};
    writer.adjacencyIs(1, adjacencyOf(vias));
    const auto held = status.adjacency(1);
    writer.adjacencyDel(1);
    EXPECT_FALSE(status.adjacency(1));
    EXPECT_EQ(held->via(false, 0).nexthopMtu, 1234U);
}

TEST(HardwareStatus, ARoutesAdjacencyIsReadOncePerGeneration) {
    LocalHardware writer;
    const Status& status = *writer;
    const std::vector<WeightedRecord> vias{swapVia(1)};
    writer.routeIs({key(100), 1, false});
    EXPECT_FALSE(status.adjacency(status.route(key(100)))); // it may come later
    writer.adjacencyIs(1, adjacencyOf(vias));
    const Adjacency* first = status.adjacency(status.route(key(100))).get();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(status.adjacency(status.route(key(100))).get(), first);
    const std::vector<WeightedRecord> others{swapVia(2)};
    writer.adjacencyIs(1, adjacencyOf(others));
    EXPECT_EQ(status.adjacency(status.route(key(100)))->via(false, 0).nexthopMtu, 2U);
}

TEST(HardwareStatus, RoutesThatAreRememberedInOnePlaceAreNotMistaken) {
    LocalHardware writer;
    const Status& status = *writer;
    constexpr std::uint32_t apart = 2048;
    for (std::uint32_t i = 0; i < 3; ++i) {
        const std::vector<WeightedRecord> vias{swapVia(1000 + i)};
        writer.adjacencyIs(i, adjacencyOf(vias));
        writer.routeIs({key(100 + i * apart), i, false});
    }
    const Route first = status.route(key(100));
    for (int round = 0; round < 2; ++round) {
        for (std::uint32_t i = 0; i < 3; ++i) {
            const Route route = status.route(key(100 + i * apart));
            EXPECT_EQ(route.adjacencyKey, i);
            EXPECT_EQ(status.adjacency(route)->via(false, 0).nexthopMtu, 1000 + i);
        }
    }
    EXPECT_EQ(status.adjacency(first)->via(false, 0).nexthopMtu, 1000U);
    EXPECT_TRUE(status.route(key(100 + 3 * apart)).isEq(Route()));
}

TEST(HardwareStatus, StaysSmallWithManyRoutes) {
    constexpr std::uint32_t routes = 100000;
    TestSupport::LocalTables tables;
    const std::vector<WeightedRecord> vias{swapVia()};
    for (std::uint32_t i = 0; i < routes; ++i) {
        tables.publisher.hardware().adjacencyIs(i + 1, *adjacencyOf(vias));
        tables.publisher.hardware().routeIs({key(16 + i), i + 1, false});
    }
    tables.commit();
    EXPECT_LE(tables.publisher.tables().usedBytes() / routes, 128U);
    EXPECT_EQ(tables.published.hardware()->route(key(16 + routes - 1)).adjacencyKey, routes);
}

TEST(Adjacency, KeepsViasAndBackupsApart) {
    std::vector<WeightedRecord> vias;
    std::vector<WeightedRecord> backups;
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
        const std::vector<WeightedRecord>& list = backup ? backups : vias;
        ASSERT_EQ(adjacency->entries(backup).size(), list.size());
        for (std::uint32_t i = 0; i < list.size(); ++i) {
            EXPECT_TRUE(adjacency->via(backup, i).isEq(list[i].via)) << backup << " " << i;
            EXPECT_EQ(adjacency->entries(backup)[i].intf, list[i].via.intfId);
            EXPECT_EQ(adjacency->entries(backup)[i].weight, list[i].weight);
        }
    }
}

TEST(Adjacency, RefusesTooManyViasAndTooMuchWeight) {
    const std::vector<WeightedRecord> largest(599, swapVia());
    const std::vector<WeightedRecord> tooMany(600, swapVia());
    EXPECT_EQ(adjacencyOf(largest, largest)->entries(true).size(), 599U);
    EXPECT_THROW(adjacencyOf(tooMany), std::invalid_argument);
    EXPECT_THROW(adjacencyOf({}, tooMany), std::invalid_argument);
    std::vector<WeightedRecord> heavy{swapVia(1, 0xffffffff), swapVia(1, 0)};
    EXPECT_EQ(adjacencyOf(heavy)->entries(false)[0].weight, 0xffffffffU);
    heavy[1].weight = 1;
    EXPECT_THROW(adjacencyOf(heavy), std::invalid_argument);
    EXPECT_THROW(adjacencyOf({}, heavy), std::invalid_argument);
}

} // namespace

} // namespace StatusTest
