#include "Tessel/Assert.h"

#include <csignal>
#include <gtest/gtest.h>

namespace AssertTest {

namespace {

using Tessel::hardAssert;

TEST(HardAssertDeathTest, EndsTheProcessWithOneExactLine) {
    EXPECT_EXIT(hardAssert(false, "a > b", "compare", "Some/Source.cpp", 12),
                ::testing::KilledBySignal(SIGABRT),
                "^Some/Source.cpp:12: compare: assertion \"a > b\" failed\n$");
    EXPECT_EXIT(hardAssert(false, "a > b", "compare", "/builds/MplsVorn/OvixHost/A.cpp", 12),
                ::testing::KilledBySignal(SIGABRT),
                "^MplsVorn/OvixHost/A.cpp:12: compare: assertion \"a > b\" failed\n$");
}

TEST(HardAssertDeathTest, KnowsTheFunctionFileAndLineThatAsserts) {
    const int line = __LINE__ + 2;
    struct Asserting {
        static void fromInfo() { hardAssert(false, "info"); }
    };
    EXPECT_EXIT(Asserting::fromInfo(), ::testing::KilledBySignal(SIGABRT),
                "AssertTest.cpp:" + std::to_string(line) +
                    ": fromInfo: assertion \"info\" failed\n$");
}

TEST(HardAssert, LetsAnInvariantThatHoldsPass) {
    hardAssert(true, "a > b");
}

} // namespace

} // namespace AssertTest
