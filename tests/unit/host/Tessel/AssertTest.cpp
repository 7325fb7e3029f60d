#include "Tessel/Assert.h"

#include <csignal>
#include <gtest/gtest.h>

namespace AssertTest {

namespace {

using Tessel::hardAssert;

TEST(HardAssertDeathTest, EndsTheProcessWithOneExactLine) {
    EXPECT_EXIT(hardAssert(false, "a > b", "compare", "Some/Source", 12),
                ::testing::KilledBySignal(SIGABRT),
                "^Some/Source:12: compare: assertion \"a > b\" failed\n$");
}

TEST(HardAssertDeathTest, KnowsTheLineThatAsserts) {
    const int line = __LINE__ + 1;
    const auto assertion = [] { hardAssert(false, "info", "fromInfo", "Mpls"); };
    EXPECT_EXIT(assertion(), ::testing::KilledBySignal(SIGABRT),
                "^Mpls:" + std::to_string(line) + ": fromInfo: assertion \"info\" failed\n$");
}

TEST(HardAssert, LetsAnInvariantThatHoldsPass) {
    hardAssert(true, "a > b", "compare", "Some/Source");
}

} // namespace

} // namespace AssertTest
