#include "Program/Ending.h"

#include <csignal>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>

namespace EndingTest {

using OvixLog::endOf;

namespace {

template <typename Exception>
[[noreturn]] void fail(const Exception& with) {
    throw with;
}

} // namespace

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

TEST(Ending, WithoutMemoryIsReportedWhereNothingCanBeThrown) {
    const auto run = []() noexcept -> int { fail(std::bad_alloc()); };
    EXPECT_EXIT(endOf("agent", 2, run), testing::ExitedWithCode(2), "agent: out of memory");
}

TEST(Ending, ByAnExceptionThatMustNotBeThrownIsNoReportOfMemory) {
    const auto run = []() noexcept -> int { fail(std::runtime_error("a bug")); };
    EXPECT_EXIT(endOf("agent", 2, run), testing::KilledBySignal(SIGABRT), "");
}

} // namespace EndingTest
