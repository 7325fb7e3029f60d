#include "Tessel/FlatMap.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <unordered_map>
#include <utility>
#include <vector>

namespace FlatMapTest {

namespace {

using namespace Tessel;
using Map = FlatMap<std::uint32_t>;
using Expected = std::unordered_map<std::uint64_t, std::uint32_t>;

void expectSame(const Map& map, const Expected& expected) {
    ASSERT_EQ(map.size(), expected.size());
    EXPECT_EQ(map.empty(), expected.empty());
    Expected visited;
    map.forEach([&](std::uint64_t key, std::uint32_t value) {
        EXPECT_TRUE(visited.emplace(key, value).second) << key;
    });
    EXPECT_EQ(visited, expected);
    for (const auto& [key, value] : expected) {
        const std::uint32_t* found = map.find(key);
        ASSERT_NE(found, nullptr) << key;
        EXPECT_EQ(*found, value);
    }
}

/// Where the keys of a run of random operations come from.
struct KeySpace {
    const char* name;
    std::uint64_t (*key)(std::uint64_t random);
};

class FlatMapOperations : public ::testing::TestWithParam<KeySpace> {};

INSTANTIATE_TEST_SUITE_P(
    Keys, FlatMapOperations,
    ::testing::Values(
        KeySpace{"Dense", [](std::uint64_t r) { return r % 4000; }},
        KeySpace{"Labels", [](std::uint64_t r) { return (std::uint64_t{1} << 60U) | r % 5000; }},
        KeySpace{"HighBits", [](std::uint64_t r) { return (r % 3000) << 50U; }},
        KeySpace{"Sparse", [](std::uint64_t r) { return r % 3000 * 0x9e3779b97f4a7c15; }},
        KeySpace{"Few", [](std::uint64_t r) { return r % 13; }}),
    [](const auto& space) { return space.param.name; });

TEST_P(FlatMapOperations, AgreeWithTheStandardMap) {
    Map map;
    Expected expected;
    std::mt19937_64 random(20);
    for (std::uint32_t i = 0; i < 200000; ++i) {
        const std::uint64_t key = GetParam().key(random());
        const std::uint64_t choice = random() % 16;
        if (choice < 7) {
            map[key] = i;
            expected[key] = i;
        } else if (choice < 14) {
            ASSERT_EQ(map.erase(key), expected.erase(key) == 1) << i;
        } else if (choice == 14) {
            const auto held = expected.find(key);
            const std::uint32_t* found = map.find(key);
            ASSERT_EQ(found != nullptr, held != expected.end()) << i;
            if (found != nullptr) {
                ASSERT_EQ(*found, held->second);
            }
        } else {
            ASSERT_EQ(map[key], expected[key]); // created with its default if absent
        }
        ASSERT_EQ(map.size(), expected.size());
    }
    expectSame(map, expected);
    for (const auto& entry : expected) {
        EXPECT_TRUE(map.erase(entry.first));
    }
    EXPECT_TRUE(map.empty());
}

TEST(FlatMap, OfNothingFindsNothing) {
    Map map;
    EXPECT_TRUE(map.empty());
    EXPECT_EQ(map.memoryBytes(), 0U);
    EXPECT_EQ(map.find(0), nullptr);
    EXPECT_FALSE(map.erase(0));
    map.forEach([](std::uint64_t, std::uint32_t) { ADD_FAILURE(); });
}

TEST(FlatMap, ReservesRoomForAsManyEntriesAsAsked) {
    for (const std::size_t entries : {0U, 1U, 2U, 3U, 4U, 5U, 15U, 16U, 17U, 100U, 1000U, 4096U}) {
        Map map;
        map[7] = 1;
        map.reserve(entries);
        const std::size_t bytes = map.memoryBytes();
        EXPECT_EQ(*map.find(7), 1U);
        for (std::uint64_t key = 8; map.size() < entries; ++key) {
            map[key] = 2;
        }
        EXPECT_EQ(map.memoryBytes(), bytes) << entries;
    }
}

TEST(FlatMap, TakesTheSmallestReservation) {
    Map map;
    map.reserve(0);
    EXPECT_EQ(map.find(1), nullptr);
    map[1] = 5;
    map.reserve(1);
    EXPECT_EQ(*map.find(1), 5U);
}

TEST(FlatMap, HoldsNoReservedKey) {
    Map map;
    EXPECT_THROW(map[Map::reservedKey], RangeError);
    EXPECT_EQ(map.find(Map::reservedKey), nullptr);
    for (std::uint64_t key = 0; key < 20; ++key) {
        map[key] = 1;
        EXPECT_THROW(map[Map::reservedKey], RangeError);
        EXPECT_EQ(map.find(Map::reservedKey), nullptr);
        EXPECT_FALSE(map.erase(Map::reservedKey));
        EXPECT_EQ(map.size(), key + 1);
    }
}

TEST(FlatMap, ClosesTheGapOfARunThatWrapsAround) {
    // Multiplied by a seed of 1 a key is its own hash: its upper bits say where it belongs.
    const auto keyNearTheEnd = [](std::uint64_t i) {
        return (~std::uint64_t{0} << 32U) + (i << 8U);
    };
    for (std::uint64_t run = 1; run <= 12; ++run) {
        for (std::uint64_t gone = 0; gone < run; ++gone) {
            Map map(1);
            Expected expected;
            map.reserve(15);
            map[0] = 99; // at home in the first slot, in the way of the run
            expected[0] = 99;
            for (std::uint64_t i = 0; i < run; ++i) {
                map[keyNearTheEnd(i)] = static_cast<std::uint32_t>(i);
                expected[keyNearTheEnd(i)] = static_cast<std::uint32_t>(i);
            }
            EXPECT_TRUE(map.erase(keyNearTheEnd(gone)));
            expected.erase(keyNearTheEnd(gone));
            expectSame(map, expected);
            EXPECT_TRUE(map.erase(0));
            expected.erase(0);
            expectSame(map, expected);
        }
    }
}

TEST(FlatMap, AnErasedValueIsReleasedAndComesBackAsItsDefault) {
    FlatMap<std::shared_ptr<int>> map;
    const auto value = std::make_shared<int>(1);
    for (std::uint64_t key = 0; key < 100; ++key) {
        map[key] = value;
    }
    EXPECT_EQ(value.use_count(), 101);
    for (std::uint64_t key = 0; key < 100; key += 2) {
        EXPECT_TRUE(map.erase(key));
    }
    EXPECT_EQ(value.use_count(), 51);
    EXPECT_EQ(map[0], nullptr);
    EXPECT_EQ(map[1], value);
}

TEST(FlatMap, IsLeftEmptyAndUsableByAMove) {
    Map map;
    map[1] = 10;
    Map moved(std::move(map));
    EXPECT_EQ(*moved.find(1), 10U);
    EXPECT_TRUE(map.empty()); // NOLINT(bugprone-use-after-move): what a move leaves is the point
    EXPECT_EQ(map.find(1), nullptr);
    map[2] = 20;
    EXPECT_EQ(*map.find(2), 20U);
    map = std::move(moved);
    EXPECT_EQ(*map.find(1), 10U);
    EXPECT_EQ(map.find(2), nullptr);
    EXPECT_EQ(moved.find(1), nullptr); // NOLINT(bugprone-use-after-move)
    const Map copy = map;
    map[1] = 11;
    EXPECT_EQ(*copy.find(1), 10U);
    Map& itself = map;
    map = itself;
    EXPECT_EQ(*map.find(1), 11U);
}

} // namespace

} // namespace FlatMapTest
