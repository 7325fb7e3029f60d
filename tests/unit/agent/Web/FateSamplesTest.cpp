#include "Web/FateSamples.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace FateSamplesTest {

using nlohmann::json;
using OvixAgent::FateSamples;

/// Nobody answers there, so that only the test adds anything.
const char* const nowhere = "/nonexistent/control.sock";

json rowOf(const FateSamples& samples, const json& reason, std::size_t reasons = 6) {
    const json all = json::parse(samples.json(reasons));
    for (const json& row : all.at("reasons")) {
        if (row.at("reason") == reason) {
            return row.at("frames");
        }
    }
    return nullptr;
}

TEST(FateSamples, GrowthIsKeptByInterval) {
    FateSamples samples(nowhere);
    samples.add({{"a", 100}}); // what was dropped before is none of the first interval
    samples.add({{"a", 103}, {"b", 2}});
    samples.add({{"a", 103}, {"b", 2}});
    samples.add({{"a", 104}, {"b", 7}});
    EXPECT_EQ(rowOf(samples, "a"), json({3, 0, 1}));
    EXPECT_EQ(rowOf(samples, "b"), json({2, 0, 5}));
    samples.add({{"a", 4}}); // counters were cleared
    EXPECT_EQ(rowOf(samples, "a"), json({3, 0, 1, 4}));
}

TEST(FateSamples, OnlyTheMostAreShownByName) {
    FateSamples samples(nowhere);
    samples.add({});
    samples.add({{"a", 1}, {"b", 9}, {"c", 2}, {"d", 5}});
    EXPECT_EQ(json::parse(samples.json(2)).at("reasons").size(), 3U);
    EXPECT_EQ(rowOf(samples, "b", 2), json({9}));
    EXPECT_EQ(rowOf(samples, "d", 2), json({5}));
    EXPECT_EQ(rowOf(samples, nullptr, 2), json({3}));
}

TEST(FateSamples, FiveMinutesAreKept) {
    FateSamples samples(nowhere);
    for (std::uint64_t i = 0; i < 2 * FateSamples::most; ++i) {
        samples.add({{"a", i}});
    }
    EXPECT_EQ(rowOf(samples, "a").size(), FateSamples::most);
}

} // namespace FateSamplesTest
