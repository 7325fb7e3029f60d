#include "Summary/Summary.h"

#include <gtest/gtest.h>

#include "SummaryTesting.h"

namespace SummaryTest {

using namespace OvixAgent;
using OvixAgent::Testing::busySummary;

TEST(Summary, BalancesWhenEveryFrameHasOneFate) {
    EXPECT_TRUE(Summary().isBalanced());
    const Summary summary = busySummary();
    EXPECT_EQ(summary.forwardedTotal(), (Traffic{8, 12645}));
    EXPECT_EQ(summary.accountedFor(), 13U);
    EXPECT_TRUE(summary.isBalanced());
}

TEST(Summary, DoesNotBalanceWhenAFrameHasNoneOrTwo) {
    Summary lost = busySummary();
    ++lost.in.frames;
    EXPECT_FALSE(lost.isBalanced());
    Summary twice = busySummary();
    twice.dropped.add("TTL expired", 1);
    EXPECT_FALSE(twice.isBalanced());
    Summary copied = busySummary();
    ++copied.replicas;
    EXPECT_FALSE(copied.isBalanced());
}

TEST(Summary, ReasonsAddUp) {
    Reasons reasons;
    EXPECT_EQ(reasons.total(), 0U);
    reasons.add("a", 1);
    reasons.add("b", 2);
    reasons.add("a", 3);
    EXPECT_EQ(reasons.total(), 6U);
    EXPECT_EQ(reasons.counts().at("a"), 4U);
}

} // namespace SummaryTest
