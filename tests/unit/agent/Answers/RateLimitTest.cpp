#include "Answers/RateLimit.h"

#include <gtest/gtest.h>

namespace RateLimitTest {

using namespace OvixAgent;

namespace {

constexpr std::uint64_t second = 1'000'000'000;
constexpr AnswerReason some = AnswerReason::timeExceeded;

/// How many of `asked` answers at one time are admitted.
unsigned admitted(RateLimit& limit, std::uint64_t now, unsigned asked, AnswerReason reason = some) {
    unsigned count = 0;
    for (unsigned i = 0; i < asked; ++i) {
        count += limit.admit(reason, now) ? 1U : 0U;
    }
    return count;
}

} // namespace

TEST(RateLimit, AdmitsABurstAndThenTheRate) {
    RateLimit limit;
    EXPECT_EQ(admitted(limit, 5 * second, 150), 100U);
    EXPECT_EQ(admitted(limit, 5 * second + second / 100 - 1, 2), 0U);
    EXPECT_EQ(admitted(limit, 5 * second + second / 100, 2), 1U);
    EXPECT_EQ(admitted(limit, 5 * second + second / 2, 100), 49U);
    EXPECT_EQ(admitted(limit, 60 * second, 150), 100U);
}

TEST(RateLimit, KeepsItsRateUnderLoad) {
    RateLimit limit({100, 10});
    unsigned count = 0;
    for (std::uint64_t now = 0; now <= 10 * second; now += 333'333) {
        count += admitted(limit, now, 1);
    }
    EXPECT_EQ(count, 10U + 999U); // the loop ends just before 10 s
}

TEST(RateLimit, CountsEachReasonApart) {
    RateLimit limit({10, 3});
    EXPECT_EQ(admitted(limit, 0, 5, AnswerReason::timeExceeded), 3U);
    EXPECT_EQ(admitted(limit, 0, 5, AnswerReason::tooBig), 3U);
    EXPECT_EQ(admitted(limit, 0, 4, AnswerReason::lspEcho), 3U);
}

TEST(RateLimit, AdmitsNothingWithoutRateOrBurst) {
    RateLimit noRate({0, 10});
    RateLimit noBurst({10, 0});
    EXPECT_EQ(admitted(noRate, 1000 * second, 10), 0U);
    EXPECT_EQ(admitted(noBurst, 1000 * second, 10), 0U);
}

TEST(RateLimit, HandlesExtremesOfRateAndClock) {
    constexpr std::uint32_t most = ~std::uint32_t{0};
    RateLimit limit({most, most});
    EXPECT_EQ(admitted(limit, ~std::uint64_t{0}, 1000), 1000U);
    RateLimit back({100, 1});
    EXPECT_EQ(admitted(back, 10 * second, 2), 1U);
    EXPECT_EQ(admitted(back, 9 * second, 2), 0U);
    EXPECT_EQ(admitted(back, 9 * second + second / 100, 2), 1U);
}

} // namespace RateLimitTest
