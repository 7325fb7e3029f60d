#include "State/ClearCounters.h"

#include <gtest/gtest.h>

namespace ClearCountersTest {

namespace {

using namespace Counter;

class Keeper : public ClearCountersSmBase {
  public:
    using ClearCountersSmBase::ClearCountersSmBase;
    int cleared = 0;

  protected:
    void clearAllCounters() override { ++cleared; }
};

class ClearCountersTest : public ::testing::Test {
  protected:
    Ptr<ClearCountersRequests> requests = Tessel::make<ClearCountersRequests>();
};

TEST_F(ClearCountersTest, TheQueueCountsItsRequests) {
    EXPECT_EQ(requests->name(), "clearCounters");
    EXPECT_EQ(requests->typeName(), "Counter::ClearCountersRequests");
    EXPECT_EQ(requests->requests(), 0U);
    requests->requestClearAll();
    requests->requestClearAll();
    EXPECT_EQ(requests->requests(), 2U);
}

TEST_F(ClearCountersTest, AKeeperHearsNothingUntilSwitchedOn) {
    Keeper keeper(requests);
    EXPECT_EQ(keeper.requests(), requests);
    EXPECT_FALSE(keeper.hasNotificationActive());
    requests->requestClearAll();
    EXPECT_EQ(keeper.cleared, 0);
}

TEST_F(ClearCountersTest, EveryRequestClearsEveryActiveKeeper) {
    Keeper first(requests);
    Keeper second(requests);
    first.hasNotificationActiveIs(true);
    first.hasNotificationActiveIs(true);
    second.hasNotificationActiveIs(true);
    EXPECT_TRUE(first.hasNotificationActive());
    requests->requestClearAll();
    requests->requestClearAll();
    EXPECT_EQ(first.cleared, 2);
    EXPECT_EQ(second.cleared, 2);
}

TEST_F(ClearCountersTest, AKeeperSwitchedOffHearsNoMoreUntilOnAgain) {
    Keeper keeper(requests);
    keeper.hasNotificationActiveIs(true);
    keeper.hasNotificationActiveIs(false);
    EXPECT_FALSE(keeper.hasNotificationActive());
    requests->requestClearAll();
    EXPECT_EQ(keeper.cleared, 0);
    keeper.hasNotificationActiveIs(true);
    requests->requestClearAll();
    EXPECT_EQ(keeper.cleared, 1);
}

TEST_F(ClearCountersTest, AZombieClearsNothing) {
    Keeper keeper(requests);
    keeper.hasNotificationActiveIs(true);
    keeper.zelDoZombieReactors(true);
    requests->requestClearAll();
    EXPECT_EQ(keeper.cleared, 0);
    EXPECT_TRUE(keeper.hasNotificationActive());
    keeper.zelDoZombieReactors(false);
    requests->requestClearAll();
    EXPECT_EQ(keeper.cleared, 1);
}

TEST_F(ClearCountersTest, OnlyTheRequestAttributeClears) {
    Keeper keeper(requests);
    keeper.hasNotificationActiveIs(true);
    requests->publish(ClearCountersRequests::requestAttr + 1);
    EXPECT_EQ(keeper.cleared, 0);
}

TEST_F(ClearCountersTest, ADestroyedKeeperIsOffTheQueue) {
    {
        const auto keeper = Tessel::make<Keeper>(requests);
        keeper->hasNotificationActiveIs(true);
        EXPECT_GT(requests->references(), 1U);
    }
    EXPECT_EQ(requests->references(), 1U);
    requests->requestClearAll();
}

TEST_F(ClearCountersTest, AKeeperWithoutAQueueHearsNothing) {
    Keeper keeper(nullptr);
    keeper.hasNotificationActiveIs(true);
    EXPECT_TRUE(keeper.hasNotificationActive());
    keeper.hasNotificationActiveIs(false);
    EXPECT_EQ(keeper.cleared, 0);
}

} // namespace

} // namespace ClearCountersTest
