#include "Program/Ending.h"

#include <gtest/gtest.h>
#include <new>
#include <stdexcept>

namespace EndingTest {

using OvixLog::endOf;

TEST(Ending, OfAProgramThatRunsIsItsExitCode) {
    EXPECT_EQ(endOf("agent", 1, [] { return 3; }), 3);
}

TEST(Ending, ByAnExceptionIsReportedAndAFailure) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(endOf("agent", 2, []() -> int { throw std::runtime_error("no plugin"); }), 2);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "agent: no plugin\n");
}

TEST(Ending, WithoutMemoryIsSaidInWords) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(endOf("agent", 1, []() -> int { throw std::bad_alloc(); }), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "agent: out of memory\n");
}

} // namespace EndingTest
