#include "FastPath/EventSets.h"

#include <gtest/gtest.h>
#include <string>

namespace EventSetsTest {

using namespace OvixAgent;
using Events = Ovix::LabelDecision::Events;

namespace {

class EventSetsTest : public ::testing::Test {
  protected:
    const Ovix::OvixNamedCounters::Counter* event(const std::string& reason) {
        return &names->counter({"Drop", "Test", reason});
    }
    std::uint16_t setOf(const Events& events) { return sets.setOf(events).value(); }
    std::uint64_t counted(const std::string& reason) const {
        return counters->value("Drop", "Test", reason);
    }
    std::vector<std::string> reasons() const {
        std::vector<std::string> all;
        for (const auto& counter : counters->counters()) {
            all.push_back(counter.reason);
        }
        return all;
    }

    Ptr<Ovix::OvixNamedCounters> names = Tessel::make<Ovix::OvixNamedCounters>();
    Ptr<Ovix::OvixNamedCounters> counters = Tessel::make<Ovix::OvixNamedCounters>();
    EventSets sets;
    EventCounts counts{sets, counters};
};

} // namespace

TEST_F(EventSetsTest, TheSameEventsInTheSameOrderAreOneSet) {
    const Events ab{event("a"), event("b")};
    const Events ba{event("b"), event("a")};
    EXPECT_EQ(setOf(ab), setOf(ab));
    EXPECT_NE(setOf(ab), setOf(ba));
    EXPECT_NE(setOf(ab), setOf({event("a")}));
    EXPECT_NE(setOf({event("a")}), setOf({event("a"), event("a")}));
    EXPECT_EQ(setOf({}), EventSets::none);
    EXPECT_NE(setOf(ab), EventSets::none);
}

TEST_F(EventSetsTest, ASetThatIsOnlyKnownCountsNothing) {
    setOf({event("a")});
    counts.settle();
    EXPECT_TRUE(counters->counters().empty());
    counts.count(EventSets::none);
    counts.settle();
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(EventSetsTest, CountersStandInTheOrderOfTheirFirstCount) {
    const std::uint16_t a = setOf({event("a"), event("x")});
    const std::uint16_t b = setOf({event("b")});
    const std::uint16_t c = setOf({event("x"), event("c"), event("b")});
    counts.count(b);
    counts.count(c);
    counts.count(a);
    counts.count(b);
    counts.settle();
    EXPECT_EQ(reasons(), (std::vector<std::string>{"b", "x", "c", "a"}));
    EXPECT_EQ(counted("b"), 3U);
    EXPECT_EQ(counted("x"), 2U);
    EXPECT_EQ(counted("c"), 1U);
    EXPECT_EQ(counted("a"), 1U);
}

TEST_F(EventSetsTest, AnEventCountsAsOftenAsItStandsInItsSet) {
    const std::uint16_t often = setOf({event("a"), event("a"), event("a"), event("b"), event("a")});
    const std::uint16_t alone = setOf({event("c"), event("c")});
    for (const std::uint64_t times : {1U, 2U}) {
        counts.count(often);
        counts.count(alone);
        counts.settle();
        EXPECT_EQ(counted("a"), 4 * times);
        EXPECT_EQ(counted("b"), times);
        EXPECT_EQ(counted("c"), 2 * times);
    }
}

TEST_F(EventSetsTest, RunsOfOneSetAreCountedWhenTheyAreSettled) {
    const std::uint16_t a = setOf({event("a")});
    const std::uint16_t b = setOf({event("b"), event("c")});
    for (int i = 0; i < 5; ++i) {
        counts.count(a);
    }
    EXPECT_EQ(counted("a"), 0U);
    counts.settle();
    counts.settle();
    EXPECT_EQ(counted("a"), 5U);
    for (int i = 0; i < 3; ++i) {
        counts.count(a);
    }
    counts.count(b);
    counts.count(b);
    counts.settle();
    EXPECT_EQ(counted("a"), 8U);
    EXPECT_EQ(counted("b"), 2U);
    EXPECT_EQ(counted("c"), 2U);
}

TEST_F(EventSetsTest, CountersThatOthersHaveMadeAreTheSame) {
    counters->count("Drop", "Test", "a");
    counts.count(setOf({event("a")}));
    counts.settle();
    EXPECT_EQ(counted("a"), 2U);
    EXPECT_EQ(reasons(), std::vector<std::string>{"a"});
}

TEST_F(EventSetsTest, TooManyDifferentSetsAreRefusedAndTheKnownOnesStay) {
    std::size_t known = 0;
    while (sets.setOf({event(std::to_string(known))})) {
        ASSERT_LT(++known, 100000U);
    }
    EXPECT_GT(known, 1000U);
    counts.count(setOf({event("0")}));
    counts.settle();
    EXPECT_EQ(counted("0"), 1U);
    EXPECT_EQ(setOf({}), EventSets::none);
}

} // namespace EventSetsTest
