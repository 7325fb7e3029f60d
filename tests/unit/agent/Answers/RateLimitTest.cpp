#include "Answers/RateLimit.h"

#include <gtest/gtest.h>

namespace RateLimitTest {

using namespace OvixAgent;

namespace {

constexpr std::uint64_t second = 1'000'000'000;
constexpr std::uint32_t most = ~std::uint32_t{0};
constexpr AnswerReason some = AnswerReason::timeExceeded;

/// The same limits for every reason.
AnswerLimits limitsOf(const TokenRate& all, const TokenRate& perSource = {most, most}) {
    AnswerLimits limits;
    limits.fill({all, perSource});
    return limits;
}

/// How many of `asked` answers at one time are admitted.
unsigned admitted(RateLimit& limit, std::uint64_t now, unsigned asked, AnswerReason reason = some,
                  const char* source = "192.0.2.1", std::uint32_t port = 0) {
    const Lumo::IpGenAddr address = Lumo::IpGenAddr::fromText(source);
    unsigned count = 0;
    for (unsigned i = 0; i < asked; ++i) {
        if (limit.mayAdmit(reason, port, address, now)) {
            EXPECT_TRUE(limit.mayAdmit(reason, now));
            limit.take(reason, port, address);
            ++count;
        }
    }
    return count;
}

} // namespace

TEST(RateLimit, AdmitsABurstAndThenTheRate) {
    RateLimit limit(limitsOf({100, 100}));
    EXPECT_EQ(admitted(limit, 5 * second, 150), 100U);
    EXPECT_EQ(admitted(limit, 5 * second + second / 100 - 1, 2), 0U);
    EXPECT_FALSE(limit.mayAdmit(some, 5 * second + second / 100 - 1));
    EXPECT_EQ(admitted(limit, 5 * second + second / 100, 2), 1U);
    EXPECT_EQ(admitted(limit, 5 * second + second / 2, 100), 49U);
    EXPECT_EQ(admitted(limit, 60 * second, 150), 100U);
}

TEST(RateLimit, KeepsItsRateUnderLoad) {
    RateLimit limit(limitsOf({100, 10}));
    unsigned count = 0;
    for (std::uint64_t now = 0; now <= 10 * second; now += 333'333) {
        count += admitted(limit, now, 1);
    }
    EXPECT_EQ(count, 10U + 999U); // the loop ends just before 10 s
}

TEST(RateLimit, CountsEachReasonApart) {
    RateLimit limit(limitsOf({10, 3}));
    EXPECT_EQ(admitted(limit, 0, 5, AnswerReason::timeExceeded), 3U);
    EXPECT_EQ(admitted(limit, 0, 5, AnswerReason::tooBig), 3U);
    EXPECT_EQ(admitted(limit, 0, 4, AnswerReason::lspEcho), 3U);
}

TEST(RateLimit, NoSourceTakesWhatOthersNeed) {
    RateLimit limit(limitsOf({1000, 1000}, {10, 20}), 1);
    EXPECT_EQ(admitted(limit, 0, 5000), 20U);
    EXPECT_EQ(admitted(limit, 0, 50, some, "192.0.2.200"), 0U); // of the same network
    EXPECT_EQ(admitted(limit, 0, 50, some, "192.0.3.1"), 20U);
    EXPECT_EQ(admitted(limit, 0, 50, some, "192.0.2.1", 1), 20U); // at another port
    EXPECT_EQ(admitted(limit, 0, 50, AnswerReason::lspEcho), 20U);
    EXPECT_EQ(admitted(limit, 0, 50, some, "2001:db8:1:1::1"), 20U);
    EXPECT_EQ(admitted(limit, 0, 50, some, "2001:db8:1:ff:2::2"), 0U);
    EXPECT_EQ(admitted(limit, 0, 50, some, "2001:db8:1:100::1"), 20U);
    EXPECT_EQ(admitted(limit, second, 50), 10U);
}

TEST(RateLimit, AdmitsNothingWithoutRateOrBurst) {
    RateLimit noRate(limitsOf({0, 10}));
    RateLimit noBurst(limitsOf({10, 0}));
    RateLimit noSource(limitsOf({10, 10}, {}));
    for (RateLimit* limit : {&noRate, &noBurst, &noSource}) {
        EXPECT_EQ(admitted(*limit, 1000 * second, 10), 0U);
    }
}

TEST(RateLimit, OtherLimitsHoldFromThenOn) {
    RateLimit limit(limitsOf({100, 100}));
    EXPECT_EQ(admitted(limit, 0, 100), 100U);
    limit.configure(limitsOf({10, 5}));
    EXPECT_EQ(admitted(limit, second, 100), 0U); // 100 too many so far
    EXPECT_EQ(admitted(limit, 60 * second, 100), 5U);
    limit.configure(limitsOf({}));
    EXPECT_EQ(admitted(limit, 120 * second, 1), 0U);
}

TEST(RateLimit, HandlesExtremesOfRateAndClock) {
    RateLimit limit(limitsOf({most, most}));
    EXPECT_EQ(admitted(limit, ~std::uint64_t{0}, 1000), 1000U);
    RateLimit back(limitsOf({100, 1}));
    EXPECT_EQ(admitted(back, 10 * second, 2), 1U);
    EXPECT_EQ(admitted(back, 9 * second, 2), 0U);
    EXPECT_EQ(admitted(back, 9 * second + second / 100, 2), 1U);
}

} // namespace RateLimitTest
