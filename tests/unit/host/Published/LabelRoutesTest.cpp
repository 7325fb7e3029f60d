#include "Published/LabelRoutes.h"

#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <optional>

#include "LocalTables.h"
#include "Published/WaitingRoutes.h"
#include "ShmTesting.h"

namespace LabelRoutesTest {

namespace {

using Lumo::MplsLabel;
using Mpls::LabelRoute;
using Mpls::LabelRoutes;
using Mpls::RouteOwner;
using Mpls::TableId;

constexpr RouteOwner byHand = RouteOwner::byHand;
constexpr RouteOwner file = RouteOwner::file;
constexpr RouteOwner fpm = RouteOwner::fpm;

LabelRoute swapRoute(std::uint32_t label, RouteOwner owner, std::uint32_t out,
                     TableId table = TableId::transitLfib) {
    LabelRoute route;
    route.label = MplsLabel(label);
    route.table = table;
    route.owner = owner;
    Mpls::ViaOptions options;
    options.intf = Lumo::IntfId("east");
    const std::array labels{MplsLabel(out)};
    route.vias = {{Mpls::Via::swap(labels, options).value(), 1}};
    return route;
}

class LabelRoutesTest : public testing::Test {
  protected:
    void put(const LabelRoute& route) {
        const auto done = tables.publisher.labelRoutes().routeIs(route);
        EXPECT_TRUE(done) << done.refused().what;
    }
    bool remove(std::uint32_t label, RouteOwner owner, TableId table = TableId::transitLfib) {
        return tables.publisher.labelRoutes().routeDel(table, MplsLabel(label), owner);
    }
    void commit() { tables.commit(); }

    /// The label that frames get by a table; 0 when the table does not have theirs.
    std::uint32_t out(std::uint32_t label, TableId table = TableId::transitLfib) const {
        const auto& lfib = tables.published.lfib(table);
        if (lfib->route(Mpls::RouteKey::fromLabel(MplsLabel(label))).viaSetKey.value == 0) {
            return 0;
        }
        const auto route = Mpls::readLabelRoute(*lfib, table, MplsLabel(label));
        return route.value().vias.front().via.labels().front().value();
    }
    /// The label that frames get by the hardware status, which forwards those of the transit LFIB.
    std::uint32_t programmed(std::uint32_t label) const {
        const auto& hardware = *tables.published.hardware();
        const auto route = hardware.route(Mpls::RouteKey::fromLabel(MplsLabel(label)));
        const auto content = hardware.adjacency(route)->content();
        return content ? content.value().vias.front().via.labels().front().value() : 0;
    }
    /// "LABEL OWNER" of those that wait.
    std::string waiting() const {
        std::string all;
        for (const LabelRoute& route : Mpls::readWaitingRoutes(tables.reader)) {
            all += (all.empty() ? "" : ", ") + route.label.prettyString() + " " +
                   Tessel::textOf(route.owner);
        }
        return all;
    }

    TestSupport::LocalTables tables;
};

} // namespace

TEST_F(LabelRoutesTest, ThePreferredOwnersRouteIsPublishedWhoeverComesFirst) {
    put(swapRoute(100, fpm, 200));
    put(swapRoute(100, byHand, 300));
    put(swapRoute(101, byHand, 301));
    put(swapRoute(101, fpm, 201));
    commit();
    for (const std::uint32_t label : {100U, 101U}) {
        EXPECT_EQ(out(label), label + 200);
        EXPECT_EQ(programmed(label), label + 200);
    }
    EXPECT_EQ(waiting(), "100 fpm, 101 fpm");
}

TEST_F(LabelRoutesTest, ARouteComesBackWhenThePreferredOneGoes) {
    put(swapRoute(100, fpm, 200));
    put(swapRoute(100, file, 300));
    put(swapRoute(100, byHand, 400));
    commit();
    EXPECT_EQ(out(100), 400U);
    EXPECT_TRUE(remove(100, byHand));
    commit();
    EXPECT_EQ(out(100), 300U);
    EXPECT_EQ(programmed(100), 300U);
    EXPECT_TRUE(remove(100, file));
    commit();
    EXPECT_EQ(out(100), 200U);
    EXPECT_EQ(waiting(), "");
    EXPECT_TRUE(remove(100, fpm));
    commit();
    EXPECT_EQ(out(100), 0U);
    EXPECT_EQ(tables.published.hardware()->routes(), 0U);
}

TEST_F(LabelRoutesTest, WhatWaitsIsChangedAndRemovedWithoutATouchToWhatIsPublished) {
    put(swapRoute(100, byHand, 400));
    put(swapRoute(100, fpm, 200));
    put(swapRoute(100, fpm, 201));
    commit();
    EXPECT_EQ(out(100), 400U);
    EXPECT_EQ(waiting(), "100 fpm");
    EXPECT_EQ(tables.publisher.labelRoutes().route(TableId::transitLfib, MplsLabel(100), fpm),
              swapRoute(100, fpm, 201));
    EXPECT_TRUE(remove(100, fpm));
    EXPECT_FALSE(remove(100, fpm));
    commit();
    EXPECT_EQ(out(100), 400U);
    EXPECT_EQ(waiting(), "");
}

TEST_F(LabelRoutesTest, APreferenceIsStrongerThanTheOwnersUsualOne) {
    put(swapRoute(100, byHand, 400));
    LabelRoute strong = swapRoute(100, fpm, 200);
    strong.preference = 1; // as the operator's, whose number is lower
    put(strong);
    commit();
    EXPECT_EQ(out(100), 400U);
    LabelRoute weak = swapRoute(100, byHand, 400);
    weak.preference = 2;
    put(weak);
    commit();
    EXPECT_EQ(out(100), 200U);
    EXPECT_EQ(waiting(), "100 operator");
}

TEST_F(LabelRoutesTest, AllRoutesOfALabelAreOfOneOwner) {
    put(swapRoute(100, byHand, 400));
    put(swapRoute(100, fpm, 200, TableId::decapLfib)); // would be found first
    commit();
    EXPECT_EQ(out(100, TableId::decapLfib), 0U);
    EXPECT_TRUE(remove(100, byHand));
    put(swapRoute(100, fpm, 201));
    commit();
    EXPECT_EQ(out(100, TableId::decapLfib), 200U);
    EXPECT_EQ(out(100), 201U);
    put(swapRoute(100, file, 300, TableId::pseudowireLfib));
    commit();
    EXPECT_EQ(out(100, TableId::pseudowireLfib), 300U);
    EXPECT_EQ(out(100, TableId::decapLfib), 0U);
    EXPECT_EQ(out(100), 0U);
    EXPECT_EQ(waiting(), "100 fpm, 100 fpm");
}

TEST_F(LabelRoutesTest, ManyChangesOfOneLabelMayBeOneBatch) {
    for (int turn = 0; turn < 3; ++turn) {
        put(swapRoute(100, fpm, 200));
        put(swapRoute(100, byHand, 400));
        EXPECT_TRUE(remove(100, byHand));
        put(swapRoute(100, file, 300));
        EXPECT_TRUE(remove(100, fpm));
        EXPECT_TRUE(remove(100, file));
    }
    put(swapRoute(100, fpm, 200));
    put(swapRoute(100, byHand, 400));
    commit();
    EXPECT_EQ(out(100), 400U);
    EXPECT_EQ(waiting(), "100 fpm");
}

TEST_F(LabelRoutesTest, WhatIsDiscardedHasNeverBeen) {
    put(swapRoute(100, fpm, 200));
    commit();
    put(swapRoute(100, byHand, 400));
    tables.publisher.discard();
    EXPECT_EQ(tables.publisher.labelRoutes().owners(TableId::transitLfib, MplsLabel(100)),
              std::vector{fpm});
    put(swapRoute(101, byHand, 401));
    commit();
    EXPECT_EQ(out(100), 200U);
    EXPECT_EQ(waiting(), "");
}

TEST_F(LabelRoutesTest, ARouteThatWaitsIsRefusedAsOneThatIsPublished) {
    put(swapRoute(100, byHand, 400));
    LabelRoute tail = swapRoute(100, fpm, 200);
    tail.tail.emplace();
    EXPECT_EQ(tables.publisher.labelRoutes().routeIs(tail).refused().what,
              "a route with tail ends here and cannot be in table transit");
}

TEST_F(LabelRoutesTest, AnOwnersRoutesAreListedPublishedOrNot) {
    put(swapRoute(100, fpm, 200));
    put(swapRoute(101, fpm, 201));
    put(swapRoute(101, byHand, 401));
    const auto places = tables.publisher.labelRoutes().of(fpm);
    ASSERT_EQ(places.size(), 2U);
    EXPECT_EQ(places[0], (LabelRoutes::Place{TableId::transitLfib, MplsLabel(100)}));
    EXPECT_EQ(places[1], (LabelRoutes::Place{TableId::transitLfib, MplsLabel(101)}));
    EXPECT_EQ(tables.publisher.labelRoutes().owners(TableId::transitLfib, MplsLabel(101)),
              (std::vector{byHand, fpm}));
    EXPECT_EQ(tables.publisher.labelRoutes().published(MplsLabel(101)), byHand);
}

TEST(LabelRoutesTakenOver, TheNextWriterKnowsWhatWaits) {
    const ShmTesting::SharedName name;
    const auto open = [&] {
        return std::make_unique<Mpls::TablePublisher>(
            Tessel::TableMemory::sharedForWriting(name, std::size_t{1} << 24U));
    };
    auto first = open();
    EXPECT_TRUE(first->labelRoutes().routeIs(swapRoute(100, fpm, 200)));
    EXPECT_TRUE(first->labelRoutes().routeIs(swapRoute(100, byHand, 400)));
    first->commit();
    first.reset();
    const auto next = open();
    EXPECT_EQ(next->labelRoutes().owners(TableId::transitLfib, MplsLabel(100)),
              (std::vector{byHand, fpm}));
    EXPECT_TRUE(next->labelRoutes().routeDel(TableId::transitLfib, MplsLabel(100), byHand));
    EXPECT_EQ(next->labelRoutes().route(TableId::transitLfib, MplsLabel(100), fpm),
              swapRoute(100, fpm, 200));
    EXPECT_EQ(next->labelRoutes().published(MplsLabel(100)), fpm);
}

TEST(LabelRoutesTakenOver, WhatWaitsForADamagedRouteIsPublished) {
    const ShmTesting::SharedName name;
    auto first = std::make_unique<Mpls::TablePublisher>(
        Tessel::TableMemory::sharedForWriting(name, std::size_t{1} << 24U));
    EXPECT_TRUE(first->labelRoutes().routeIs(swapRoute(100, fpm, 200)));
    EXPECT_TRUE(first->labelRoutes().routeIs(swapRoute(100, byHand, 400)));
    first->commit();
    const auto at =
        first->tables().entry(static_cast<std::size_t>(TableId::transitLfib), 100).unit();
    reinterpret_cast<std::uint64_t*>(first->tables().memory().data())[at + 1] ^= 1U;
    first.reset();
    Mpls::TablePublisher next(Tessel::TableMemory::sharedForWriting(name));
    EXPECT_EQ(next.labelRoutes().published(MplsLabel(100)), fpm);
}

} // namespace LabelRoutesTest
