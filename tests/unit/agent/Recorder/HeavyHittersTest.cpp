#include "Recorder/HeavyHitters.h"

#include <gtest/gtest.h>
#include <map>

#include "Recorder/FrameRecorder.h"

namespace HeavyHittersTest {

using Labels = OvixAgent::FrameRecorder::Labels;
using Counts = std::vector<std::pair<std::uint32_t, std::uint64_t>>;

namespace {

/// Of the keys met most, how often, in order.
Counts countsOf(const Labels& labels, std::size_t most, std::int64_t second) {
    Counts counts;
    for (const auto& entry : labels.top(most, second)) {
        counts.emplace_back(entry.key, entry.count);
    }
    return counts;
}

} // namespace

TEST(HeavyHitters, AreListedByHowOftenTheyComeOfLate) {
    Labels labels;
    for (std::uint32_t key : {7U, 9U, 7U, 8U, 7U, 9U}) {
        labels.add(key, 1, 100);
    }
    EXPECT_EQ(countsOf(labels, 2, 100), (Counts{{7, 3}, {9, 2}}));
    labels.add(8, 5, 103);
    EXPECT_EQ(countsOf(labels, 100, 103), (Counts{{8, 6}, {7, 3}, {9, 2}}));
}

TEST(HeavyHitters, KnowHowManyCameInTheSecondBefore) {
    Labels labels;
    labels.add(7, 40, 100);
    labels.add(7, 2, 101);
    EXPECT_EQ(labels.top(1, 101).front().previous, 40U);
    EXPECT_EQ(labels.top(1, 102).front().previous, 2U);
    EXPECT_EQ(labels.top(1, 103).front().previous, 0U);
    EXPECT_EQ(labels.top(1, 103).front().count, 42U);
    EXPECT_EQ(labels.top(1, 0).front().previous, 40U) << "a time before the last one";
}

TEST(HeavyHitters, AFloodOfOthersDisplacesNoneOfThem) {
    Labels labels;
    std::uint32_t random = 1;
    for (std::uint32_t i = 0; i < 400'000; ++i) {
        random = random * 1664525 + 1013904223;
        labels.add(1'000'000 + (random >> 12U), 1, i / 100'000);
        if (i % 6 == 0) { // each of fifty keys once in three hundred
            labels.add(i / 6 % 50, 1, i / 100'000);
        }
    }
    std::map<std::uint32_t, std::uint64_t> met;
    for (const auto& entry : labels.top(100, 3)) {
        met[entry.key] = entry.count;
    }
    for (std::uint32_t key = 0; key < 50; ++key) {
        EXPECT_GE(met[key], 500U) << key << ", met 1333 times, 333 of them in the last second";
    }
}

} // namespace HeavyHittersTest
