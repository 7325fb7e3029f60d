#include "State/OvixLfibCounterCollection.h"

#include <gtest/gtest.h>
#include <map>
#include <vector>

namespace OvixLfibCounterCollectionTest {

namespace {

TEST(PktCounter, CountsPacketsAndTheirBytes) {
    Counter::PktCounter counter;
    EXPECT_EQ(counter.packets(), 0U);
    EXPECT_EQ(counter.bytes(), 0U);
    counter.countBytes(64);
    counter.countBytes(0);
    counter.countBytes(0xffffffff);
    counter.countBytes(0xffffffff);
    EXPECT_EQ(counter.packets(), 4U);
    EXPECT_EQ(counter.bytes(), 64 + 2 * std::uint64_t{0xffffffff});
    counter.clearCounter();
    EXPECT_EQ(counter.packets(), 0U);
    EXPECT_EQ(counter.bytes(), 0U);
}

} // namespace

namespace {

using namespace Counter;

Mpls::RouteKey key(std::uint32_t label) {
    return Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
}

TEST(OvixLfibCounterCollection, IsANamedEntityWithoutCounters) {
    OvixLfibCounterCollection collection("LfibCounters");
    EXPECT_EQ(collection.name(), "LfibCounters");
    EXPECT_EQ(collection.typeName(), "Counter::OvixLfibCounterCollection");
    EXPECT_EQ(collection.size(), 0U);
    EXPECT_EQ(collection.counter(key(100)), nullptr);
    EXPECT_EQ(collection.size(), 0U);
}

TEST(OvixLfibCounterCollection, PacketsOfARouteShareACounter) {
    OvixLfibCounterCollection collection("c");
    collection.counterCollectionIs(key(100)).countBytes(60);
    collection.counterCollectionIs(key(100)).countBytes(1500);
    collection.counterCollectionIs(key(200)).countBytes(40);
    EXPECT_EQ(collection.size(), 2U);
    const OvixLfibCounterCollection& readOnly = collection;
    ASSERT_NE(readOnly.counter(key(100)), nullptr);
    EXPECT_EQ(readOnly.counter(key(100))->packets(), 2U);
    EXPECT_EQ(readOnly.counter(key(100))->bytes(), 1560U);
    EXPECT_EQ(readOnly.counter(key(200))->packets(), 1U);
}

TEST(OvixLfibCounterCollection, CountsSeveralPacketsOfOneSizeAtOnce) {
    OvixLfibCounterCollection collection("c");
    collection.countPackets(100, 3, 0x80000000);
    collection.countPackets(100, 2, 64);
    ASSERT_NE(collection.counter(key(100)), nullptr);
    EXPECT_EQ(collection.counter(key(100))->packets(), 5U);
    EXPECT_EQ(collection.counter(key(100))->bytes(), 3 * std::uint64_t{0x80000000} + 128);
}

TEST(OvixLfibCounterCollection, ARouteDeletedAndAddedAgainStartsFromZero) {
    OvixLfibCounterCollection collection("c");
    collection.counterCollectionIs(key(100)).countBytes(60);
    collection.counterCollectionDel(key(100));
    EXPECT_EQ(collection.counter(key(100)), nullptr);
    collection.counterCollectionDel(key(100));
    EXPECT_EQ(collection.size(), 0U);
    collection.counterCollectionIs(key(100)).countBytes(70);
    EXPECT_EQ(collection.counter(key(100))->packets(), 1U);
    EXPECT_EQ(collection.counter(key(100))->bytes(), 70U);
}

TEST(OvixLfibCounterCollection, VisitsEveryCounterOnce) {
    OvixLfibCounterCollection collection("c");
    std::map<Mpls::RouteKey, std::uint64_t> expected;
    for (std::uint32_t label = 16; label < 5000; ++label) {
        collection.counterCollectionIs(key(label)).countBytes(label);
        expected[key(label)] = label;
    }
    for (std::uint32_t label = 16; label < 5000; label += 3) {
        collection.counterCollectionDel(key(label));
        expected.erase(key(label));
    }
    std::map<Mpls::RouteKey, std::uint64_t> visited;
    collection.forEach([&](Mpls::RouteKey route, const PktCounter& counter) {
        EXPECT_TRUE(visited.emplace(route, counter.bytes()).second);
    });
    EXPECT_EQ(visited, expected);
}

TEST(OvixLfibCounterCollection, ACounterStaysWhereItIs) {
    OvixLfibCounterCollection collection("c");
    PktCounter& first = collection.counterCollectionIs(key(4095));
    for (std::uint32_t label = 16; label < 100000; label += 5) {
        collection.counterCollectionIs(key(label));
    }
    collection.countBytes(4095, 60);
    EXPECT_EQ(&collection.counterCollectionIs(key(4095)), &first);
    EXPECT_EQ(collection.counter(key(4095)), &first);
    collection.counterCollectionDel(key(4095));
    EXPECT_EQ(&collection.counterCollectionIs(key(4095)), &first);
    EXPECT_EQ(first.packets(), 0U);
}

TEST(OvixLfibCounterCollection, PacketsAreCountedByLabelAsByKey) {
    OvixLfibCounterCollection collection("c");
    for (const std::uint32_t label : {0U, 4095U, 4096U, 8191U, Lumo::MplsLabel::max}) {
        for (std::uint32_t packets = 1; packets <= 3; ++packets) {
            collection.countBytes(label, label % 1000);
            ASSERT_NE(collection.counter(key(label)), nullptr);
            EXPECT_EQ(collection.counter(key(label))->packets(), packets);
            EXPECT_EQ(collection.counter(key(label))->bytes(), packets * (label % 1000));
        }
        EXPECT_EQ(collection.counter(key(label ^ 1U)), nullptr);
        collection.counterCollectionDel(key(label));
        EXPECT_EQ(collection.counter(key(label)), nullptr);
        collection.countBytes(label, 9);
        EXPECT_EQ(collection.counter(key(label))->bytes(), 9U);
        EXPECT_EQ(collection.counter(key(label))->packets(), 1U);
    }
    EXPECT_EQ(collection.size(), 5U);
}

TEST(OvixLfibCounterCollection, VisitsLabelsInTheirOrder) {
    OvixLfibCounterCollection collection("c");
    for (const std::uint32_t label : {Lumo::MplsLabel::max, 5000U, 17U, 4096U, 4095U, 900000U}) {
        collection.countBytes(label, 1);
    }
    std::vector<std::uint32_t> visited;
    collection.forEach([&](Mpls::RouteKey route, const PktCounter&) {
        visited.push_back(route.topLabel().value());
    });
    EXPECT_EQ(visited,
              (std::vector<std::uint32_t>{17, 4095, 4096, 5000, 900000, Lumo::MplsLabel::max}));
}

TEST(OvixLfibCounterCollection, ClearsACounterInPlace) {
    OvixLfibCounterCollection collection("c");
    collection.counterCollectionIs(key(100)).countBytes(60);
    collection.counter(key(100))->clearCounter();
    EXPECT_EQ(collection.size(), 1U);
    EXPECT_EQ(collection.counter(key(100))->packets(), 0U);
    EXPECT_EQ(collection.counter(key(100))->bytes(), 0U);
}

TEST(OvixLfibCounterCollection, NeitherFindsNorRemovesAKeyOfAllOnes) {
    OvixLfibCounterCollection collection("c");
    const auto allOnes = Mpls::RouteKey::fromValue(~std::uint64_t{0});
    collection.counterCollectionIs(key(100));
    EXPECT_EQ(collection.counter(allOnes), nullptr);
    collection.counterCollectionDel(allOnes);
    EXPECT_EQ(collection.size(), 1U);
    EXPECT_THROW(collection.counterCollectionIs(allOnes), Tessel::RangeError);
}

} // namespace

namespace {

using namespace Counter;

Ptr<OvixLfibCounterCollection> named(const char* name) {
    return Tessel::make<OvixLfibCounterCollection>(name);
}

TEST(PktCounterCollectionHolder, HoldsCollectionsInTheOrderTheyCame) {
    PktCounterCollectionHolder holder;
    EXPECT_TRUE(holder.collections().empty());
    const auto first = named("first");
    const auto second = named("second");
    holder.collectionIs(first);
    holder.collectionIs(second);
    EXPECT_EQ(holder.collections(), (std::vector{first, second}));
}

TEST(PktCounterCollectionHolder, ReplacesOneOfTheSameNameInItsPlace) {
    PktCounterCollectionHolder holder;
    const auto old = named("first");
    const auto second = named("second");
    holder.collectionIs(old);
    holder.collectionIs(second);
    const auto renewed = named("first");
    holder.collectionIs(renewed);
    holder.collectionIs(renewed);
    EXPECT_EQ(holder.collections(), (std::vector{renewed, second}));
    EXPECT_EQ(old->references(), 1U);
}

TEST(PktCounterCollectionHolder, IgnoresAnEmptyHandle) {
    PktCounterCollectionHolder holder;
    holder.collectionIs(nullptr);
    EXPECT_TRUE(holder.collections().empty());
}

TEST(OvixLfibCounterCollection, TakesOverCountsOfRoutesThatAreStillThere) {
    const auto counters = Tessel::make<OvixLfibCounterCollection>("all");
    const auto others = Tessel::make<OvixLfibCounterCollection>("others");
    const auto keyOf = [](std::uint32_t label) {
        return Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
    };
    counters->countBytes(70, 10);
    for (const std::uint32_t label : {70U, 71U, 72U, 200U}) {
        others->countBytes(label, 5);
    }
    counters->absorbLabels(64, *others, [](std::uint32_t label) { return label == 72; });
    EXPECT_EQ(counters->counter(keyOf(70))->packets(), 2U);
    EXPECT_EQ(counters->counter(keyOf(70))->bytes(), 15U);
    EXPECT_EQ(counters->counter(keyOf(71)), nullptr);
    EXPECT_EQ(counters->counter(keyOf(72))->bytes(), 5U);
    EXPECT_EQ(counters->counter(keyOf(200)), nullptr);
    EXPECT_EQ(others->size(), 1U);
}

} // namespace

} // namespace OvixLfibCounterCollectionTest
