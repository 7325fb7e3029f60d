#include "FastPath/SelfCheck.h"

#include "FastPathTesting.h"

namespace SelfCheckTest {

using namespace FastPathTesting;

namespace {

class SelfCheckTest : public ::testing::Test {
  protected:
    SelfCheckTest() {
        definition.fast->isOnIs(false);
        for (Router* one : {&router, &definition}) {
            one->swapRoute(101, 301, "dark", "10.0.3.2");
            one->popRoute(102);
        }
    }
    ~SelfCheckTest() override { labelCounters = {}; }

    void checkEvery(std::uint64_t frames) {
        router.fast->checkEveryIs(frames, [this](const std::string& text) { report = text; });
    }
    void receiveInBoth(const Frames& frames) {
        for (Router* one : {&router, &definition}) {
            EXPECT_EQ(one->receive(frames), frames.size());
        }
    }

    Router router;
    Router definition;
    std::string report;
};

} // namespace

TEST_F(SelfCheckTest, EveryNthFrameIsForwardedBothWaysAndCountedOnce) {
    for (const std::uint64_t every : {1U, 3U, 64U}) {
        checkEvery(every);
        const std::uint64_t before = router.fast->counts().checked;
        for (int i = 0; i < 20; ++i) {
            receiveInBoth(Frames(10, frameOf({{100}})));
        }
        EXPECT_EQ(router.fast->counts().checked - before, 200 / every);
        expectSame(router, definition);
    }
    EXPECT_EQ(router.fast->counts().different, 0U);
    EXPECT_EQ(report, "");
}

TEST_F(SelfCheckTest, ChecksWhateverDecisionsAreMadeFor) {
    checkEvery(1);
    for (int round = 0; round < 3; ++round) {
        receiveInBoth(manyKinds());
        expectSame(router, definition);
    }
    EXPECT_EQ(report, "");
    EXPECT_GE(router.fast->counts().checked, 20U);
    EXPECT_EQ(router.fast->counts().slow, 3 * manyKinds().size()); // the forwarder's count
}

TEST_F(SelfCheckTest, ADifferenceIsReportedAndTheForwarderIsRight) {
    receiveInBoth({frameOf({{100}})});
    for (Router* one : {&router, &definition}) {
        one->swapRoute(100, 777); // of which decisions are not told
    }
    checkEvery(1);
    receiveInBoth({frameOf({{100}})});
    expectSame(router, definition);
    EXPECT_EQ(router.fast->counts().different, 1U);
    EXPECT_NE(report.find("at port west (020000000001"), std::string::npos) << report;
    EXPECT_NE(report.find("as east 02000000020202"), std::string::npos) << report;
    receiveInBoth({frameOf({{100}})});
    EXPECT_EQ(router.fast->counts().different, 1U) << "the label was not decided anew";
    expectSame(router, definition);
}

TEST_F(SelfCheckTest, ADifferenceInCountersAloneIsOne) {
    receiveInBoth({frameOf({{100}})});
    for (Router* one : {&router, &definition}) {
        one->deciding->routes[100].isCounted = false;
    }
    checkEvery(1);
    receiveInBoth({frameOf({{100}})});
    EXPECT_EQ(router.fast->counts().different, 1U);
    EXPECT_NE(report.find("the counters differ"), std::string::npos) << report;
    expectSame(router, definition);
}

} // namespace SelfCheckTest
