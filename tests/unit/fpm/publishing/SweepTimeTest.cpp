#include "publishing/SweepTime.h"

#include <gtest/gtest.h>
#include <limits>
#include <stdexcept>

using OvixFpm::sweepTime;
using std::chrono::milliseconds;

TEST(SweepTime, SecondsAreMadeMilliseconds) {
    EXPECT_EQ(sweepTime(0), milliseconds(0));
    EXPECT_EQ(sweepTime(1.5), milliseconds(1500));
    EXPECT_EQ(sweepTime(3600), milliseconds(3'600'000));
}

TEST(SweepTime, WhatIsNoTimeOrTooLongIsRefused) {
    using Limits = std::numeric_limits<double>;
    for (const double seconds : {Limits::quiet_NaN(), -Limits::quiet_NaN(), Limits::infinity(),
                                 -Limits::infinity(), -0.001, 3600.001, 1e300}) {
        EXPECT_THROW(sweepTime(seconds), std::invalid_argument) << seconds;
    }
}
