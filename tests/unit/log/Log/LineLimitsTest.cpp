#include "Log/LineLimits.h"

#include <gtest/gtest.h>

namespace LineLimitsTest {

using OvixLog::LineLimits;
using Clock = LineLimits::Clock;

const Clock::time_point start = Clock::time_point() + std::chrono::hours(1);

unsigned admitted(LineLimits& limits, std::string_view kind, unsigned lines,
                  Clock::time_point now) {
    unsigned all = 0;
    for (unsigned i = 0; i < lines; ++i) {
        all += limits.admit(kind, now) ? 1U : 0U;
    }
    return all;
}

TEST(LineLimits, ABurstAndThenOneASecond) {
    LineLimits limits;
    EXPECT_EQ(admitted(limits, "routes", 1000, start), LineLimits::burst);
    EXPECT_EQ(admitted(limits, "routes", 1000, start + std::chrono::milliseconds(900)), 0U);
    EXPECT_EQ(admitted(limits, "routes", 1000, start + std::chrono::seconds(3)), 3U);
    EXPECT_EQ(admitted(limits, "routes", 1000, start + std::chrono::hours(1)), LineLimits::burst);
}

TEST(LineLimits, AKindDoesNotUseUpAnothersLines) {
    LineLimits limits;
    admitted(limits, "routes", 1000, start);
    EXPECT_EQ(admitted(limits, "ports", 1, start), 1U);
}

TEST(LineLimits, TheEmptyKindHasNoLimit) {
    LineLimits limits;
    EXPECT_EQ(admitted(limits, {}, 1000, start), 1000U);
    EXPECT_TRUE(limits.takeLeftOut().empty());
}

TEST(LineLimits, WhatIsLeftOutIsToldOnce) {
    LineLimits limits;
    admitted(limits, "routes", LineLimits::burst + 7, start);
    admitted(limits, "ports", 1, start);
    const auto leftOut = limits.takeLeftOut();
    ASSERT_EQ(leftOut.size(), 1U);
    EXPECT_EQ(leftOut[0].kind, "routes");
    EXPECT_EQ(leftOut[0].lines, 7U);
    EXPECT_TRUE(limits.takeLeftOut().empty());
}

} // namespace LineLimitsTest
