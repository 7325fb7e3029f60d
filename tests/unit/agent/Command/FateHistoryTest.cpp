#include "Command/FateHistory.h"

#include "ForwarderTesting.h"

namespace FateHistoryTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using std::chrono::milliseconds;

namespace {

class FateHistoryTest : public ForwarderFixture {
  protected:
    void dropSome(int frames) {
        for (int i = 0; i < frames; ++i) {
            receive(labelled(), [](const auto&, auto&) {});
        }
    }
    static std::uint64_t dropsOf(const FateGrowth& growth) { return growth.frames.dropped.total(); }

    const FateHistory::Clock::time_point start{std::chrono::seconds(100)};
    FateHistory history{*forwarder, start};
};

} // namespace

TEST_F(FateHistoryTest, CountsWhatCameSinceItWasAskedLast) {
    dropSome(3);
    receive(labelled(), always(nexthop("east", "10.0.2.2")));
    const FateGrowth first = history.sinceAsked(start + milliseconds(500));
    EXPECT_DOUBLE_EQ(first.seconds, 0.5);
    EXPECT_EQ(first.frames.in.frames, 4U);
    EXPECT_EQ(first.frames.forwardedTotal().frames, 1U);
    EXPECT_EQ(first.frames.dropped.counts(),
              (std::map<std::string, std::uint64_t>{{"No next hop", 3}}));
    dropSome(2);
    receive(labelled(), always(cpuTrap())); // a reason that was not there before
    const FateGrowth second = history.sinceAsked(start + milliseconds(2500));
    EXPECT_DOUBLE_EQ(second.seconds, 2.0);
    EXPECT_EQ(dropsOf(second), 2U);
    EXPECT_EQ(second.frames.punted.total(), 1U);
    EXPECT_TRUE(second.frames.isBalanced());
    EXPECT_EQ(dropsOf(history.sinceAsked(start + milliseconds(2600))), 0U);
}

TEST_F(FateHistoryTest, RatesAreThoseOfTheLastOneToTwoSeconds) {
    dropSome(5);
    EXPECT_EQ(dropsOf(history.ofLate(start + milliseconds(100))), 5U) << "since the start";
    history.tick(start + milliseconds(1000)); // keeps the start, and this
    dropSome(7);
    EXPECT_EQ(dropsOf(history.ofLate(start + milliseconds(1200))), 12U);
    history.tick(start + milliseconds(1500)); // too soon
    history.tick(start + milliseconds(2000));
    dropSome(1);
    const FateGrowth late = history.ofLate(start + milliseconds(2500));
    EXPECT_EQ(dropsOf(late), 8U);
    EXPECT_DOUBLE_EQ(late.seconds, 1.5);
}

} // namespace FateHistoryTest
