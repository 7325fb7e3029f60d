#include "Live/ports/AdaptivePoll.h"

#include <array>
#include <gtest/gtest.h>

namespace AdaptivePollTest {

namespace {

using OvixAgent::AdaptivePoll;
using namespace std::chrono_literals;
using Time = AdaptivePoll::Clock::time_point;

/// A clock of its own, by which a call of poll that does not sleep takes a microsecond and one that
/// sleeps until there is something.
struct Script {
    Time now;
    Time readyAt;
    int sleeps = 0;
    int looks = 0;
};
Script script;

int pollOfScript(pollfd*, nfds_t, int milliseconds) {
    ++(milliseconds == 0 ? script.looks : script.sleeps);
    const Time end = script.now + 1us + std::chrono::milliseconds(milliseconds);
    script.now = std::min(end, std::max(script.now + 1us, script.readyAt));
    return script.readyAt <= script.now ? 1 : 0;
}
Time nowOfScript() {
    return script.now;
}

class AdaptivePollTest : public testing::Test {
  protected:
    AdaptivePollTest() { script = {}; }

    /// Waits for frames so far apart, and returns how often that slept.
    int sleepsFor(std::chrono::microseconds gap, int frames) {
        const int before = script.sleeps;
        for (int i = 0; i < frames; ++i) {
            script.readyAt = script.now + gap;
            EXPECT_TRUE(poll.wait(none, 100));
            EXPECT_GE(script.now, script.readyAt);
            EXPECT_LE(script.now, script.readyAt + 1us);
        }
        return script.sleeps - before;
    }

    std::array<pollfd, 1> none{};
    AdaptivePoll poll{pollOfScript, nowOfScript};
};

} // namespace

TEST_F(AdaptivePollTest, StaysAwakeWhileFramesFollowEachOtherClosely) {
    EXPECT_EQ(sleepsFor(10us, 100), 1);
    EXPECT_TRUE(poll.staysAwake());
}

TEST_F(AdaptivePollTest, SleepsWhenGapsAreLong) {
    EXPECT_EQ(sleepsFor(1ms, 100), 100);
    EXPECT_EQ(script.looks, 0);
}

TEST_F(AdaptivePollTest, StaysAwakeForABoundedTimeOnly) {
    sleepsFor(10us, 10);
    const Time last = script.now;
    script.looks = 0;
    EXPECT_EQ(sleepsFor(50ms, 1), 1);
    EXPECT_GT(script.looks, 1);
    EXPECT_LE(script.looks, AdaptivePoll::longestAwake / 1us + 4);
    EXPECT_GE(script.now - last, 50ms);
    EXPECT_FALSE(poll.staysAwake());
    EXPECT_EQ(sleepsFor(10us, 5), 1);
}

TEST_F(AdaptivePollTest, ReturnsAfterTheTimeWithoutFrames) {
    sleepsFor(10us, 10);
    script.readyAt = script.now + 1h;
    const Time start = script.now;
    EXPECT_FALSE(poll.wait(none, 100));
    EXPECT_LE(script.now - start, 101ms);
    EXPECT_FALSE(poll.wait(none, 0));
    EXPECT_LE(script.now - start, 102ms);
}

} // namespace AdaptivePollTest
