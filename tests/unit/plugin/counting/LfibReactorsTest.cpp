#include "counting/LfibReactors.h"

#include "PluginFixture.h"

namespace LfibReactorsTest {

namespace {

using namespace Ovix;
using TestSupport::PluginFixture;

/// Reactors of the test's own on the pseudowire LFIB, apart from the plugin's.
class LfibReactors : public PluginFixture {
  protected:
    void count(std::uint32_t label, std::uint32_t bytes = 64) {
        collection->counterCollectionIs(key(label)).countBytes(bytes);
    }
    std::uint64_t packets(std::uint32_t label) const {
        const Counter::PktCounter* counter = collection->counter(key(label));
        return counter != nullptr ? counter->packets() : 0;
    }
    void routeDel(std::uint32_t label) { writers[pseudowire]->routeDel(key(label)); }
    Ptr<MplsLfibStatusSm> watch() {
        return MplsLfibStatusSm::MplsLfibStatusSmIs(
            Ptr<const Mpls::LfibStatus>(writers[pseudowire]->status()), collection);
    }

    Ptr<Counter::OvixLfibCounterCollection> collection =
        Tessel::make<Counter::OvixLfibCounterCollection>("other");
    Ptr<Counter::ClearCountersRequests> requests = Tessel::make<Counter::ClearCountersRequests>();
};

TEST_F(LfibReactors, ConstructionSubscribesAndTouchesNoCounter) {
    swapRoute(pseudowire, 100, 300);
    count(100);
    count(200); // a counter without a route
    const auto reactor = watch();
    EXPECT_TRUE(reactor->hasNotificationActive());
    EXPECT_EQ(packets(100), 1U);
    EXPECT_EQ(packets(200), 1U);
    EXPECT_EQ(reactor->lfibStatus(), Ptr<const Mpls::LfibStatus>(writers[pseudowire]->status()));
    EXPECT_EQ(reactor->counterCollection(), collection);
}

TEST_F(LfibReactors, ARouteThatLeavesTakesItsOwnCounterAlone) {
    const auto reactor = watch();
    for (const std::uint32_t label : {100U, 101U, 102U}) {
        swapRoute(pseudowire, label, 300);
        count(label);
    }
    routeDel(101);
    EXPECT_EQ(collection->counter(key(101)), nullptr);
    EXPECT_EQ(collection->size(), 2U);
    EXPECT_EQ(packets(100), 1U);
    EXPECT_EQ(packets(102), 1U);
}

TEST_F(LfibReactors, ARouteThatChangesKeepsItsCountsHoweverUnusable) {
    const auto reactor = watch();
    swapRoute(pseudowire, 100, 300);
    count(100);
    swapRoute(pseudowire, 100, 301);
    writers[pseudowire]->rawRouteIs(key(100), Mpls::LfibViaSet());
    EXPECT_EQ(packets(100), 1U);
}

TEST_F(LfibReactors, ARouteThatCannotBeReadIsReportedAndLosesItsCounter) {
    const auto reactor = watch();
    swapRoute(pseudowire, 100, 300);
    count(100);
    labelTables->pageRefOf(Mpls::TableId::pseudowireLfib, 100) ^= 1U;
    reactor->handleLfibRoute(key(100));
    EXPECT_EQ(writers[pseudowire]->status()->corruptionsDetected(), 1U);
    EXPECT_EQ(collection->counter(key(100)), nullptr);
}

TEST_F(LfibReactors, SwitchedOffItHearsNothingAndOnAgainItDoes) {
    const auto reactor = watch();
    for (const std::uint32_t label : {100U, 101U}) {
        swapRoute(pseudowire, label, 300);
        count(label);
    }
    reactor->hasNotificationActiveIs(false);
    EXPECT_FALSE(reactor->hasNotificationActive());
    routeDel(100);
    EXPECT_EQ(packets(100), 1U);
    reactor->hasNotificationActiveIs(true);
    reactor->hasNotificationActiveIs(true);
    EXPECT_EQ(packets(100), 1U);
    routeDel(101);
    EXPECT_EQ(collection->counter(key(101)), nullptr);
    reactor->hasNotificationActiveIs(false);
    count(101);
    swapRoute(pseudowire, 101, 300);
    routeDel(101);
    EXPECT_EQ(packets(101), 1U);
}

TEST_F(LfibReactors, AZombieComesBackToLife) {
    const auto reactor = watch();
    swapRoute(pseudowire, 100, 300);
    count(100);
    reactor->zelDoZombieReactors(true);
    reactor->attributeChanged(*writers[transit]->status(), Mpls::LfibStatus::routeAttr,
                              key(999).value());
    routeDel(100);
    EXPECT_EQ(packets(100), 1U);
    reactor->zelDoZombieReactors(false);
    swapRoute(pseudowire, 100, 300);
    routeDel(100);
    EXPECT_EQ(collection->counter(key(100)), nullptr);
}

TEST_F(LfibReactors, OnlyTheRouteAttributeRemovesCounters) {
    const auto reactor = watch();
    count(100);
    writers[pseudowire]->status()->publish(Mpls::LfibStatus::routeAttr + 1, key(100).value());
    EXPECT_EQ(packets(100), 1U);
    writers[pseudowire]->status()->publish(Mpls::LfibStatus::routeAttr, key(100).value());
    EXPECT_EQ(collection->counter(key(100)), nullptr);
}

TEST_F(LfibReactors, ADestroyedReactorIsOffItsTable) {
    watch();
    count(100);
    swapRoute(pseudowire, 100, 300);
    routeDel(100);
    EXPECT_EQ(packets(100), 1U);
    EXPECT_EQ(collection->references(), 1U);
}

TEST_F(LfibReactors, ThePluginWatchesTheTransitTableWithItsCollection) {
    const auto& reactor = plugin->lfibStatusSm();
    ASSERT_TRUE(reactor);
    EXPECT_TRUE(reactor->hasNotificationActive());
    EXPECT_EQ(reactor->lfibStatus(), Ptr<const Mpls::LfibStatus>(writers[transit]->status()));
    EXPECT_EQ(reactor->counterCollection(), plugin->lfibCounterCollection());
    const auto& clearing = plugin->clearLfibCountersSm();
    ASSERT_TRUE(clearing);
    EXPECT_TRUE(clearing->hasNotificationActive());
    EXPECT_EQ(clearing->requests(), manager->clearCountersRequests());
    EXPECT_EQ(clearing->counterCollection(), plugin->lfibCounterCollection());
}

TEST_F(LfibReactors, CountersOfEveryOtherTableStay) {
    for (const Table table : {decap, evpnEs, pseudowire, evpnLeaf}) {
        swapRoute(table, 100, 300);
        plugin->lfibCounterCollection()->counterCollectionIs(key(100)).countBytes(64);
        writers[table]->routeDel(key(100));
        EXPECT_NE(plugin->lfibCounterCollection()->counter(key(100)), nullptr);
    }
}

TEST_F(LfibReactors, AClearZeroesEveryCounterAndKeepsItsEntry) {
    for (const auto& reactor : {ClearLfibCountersSm::ClearLfibCountersSmIs(collection, requests),
                                clearLfibCountersSmFactory(collection, requests)}) {
        reactor->hasNotificationActiveIs(true);
        for (std::uint32_t label = 16; label < 1016; ++label) {
            count(label, label);
        }
        requests->requestClearAll();
        std::uint64_t left = 0;
        collection->forEach([&](Mpls::RouteKey, const Counter::PktCounter& counter) {
            left += counter.packets() + counter.bytes();
        });
        EXPECT_EQ(left, 0U);
        EXPECT_EQ(collection->size(), 1000U);
        reactor->hasNotificationActiveIs(false);
    }
}

TEST_F(LfibReactors, AClearedCounterCountsOn) {
    const auto reactor = clearLfibCountersSmFactory(collection, requests);
    reactor->hasNotificationActiveIs(true);
    count(100);
    requests->requestClearAll();
    count(100, 10);
    EXPECT_EQ(packets(100), 1U);
    EXPECT_EQ(collection->counter(key(100))->bytes(), 10U);
}

TEST_F(LfibReactors, AZombieClearsNothing) {
    const auto reactor = clearLfibCountersSmFactory(collection, requests);
    reactor->hasNotificationActiveIs(true);
    count(100);
    reactor->zelDoZombieReactors(true);
    requests->requestClearAll();
    EXPECT_EQ(packets(100), 1U);
}

} // namespace

} // namespace LfibReactorsTest
