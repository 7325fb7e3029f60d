// Some frames are traced, and others do not notice.

#include <set>

#include "FastPath/FastPath.h"
#include "FastPathTesting.h"

namespace TracedFramesTest {

using namespace FastPathTesting;

namespace {

class TracedFramesTest : public ::testing::Test {
  protected:
    TracedFramesTest() {
        definition.fast->isOnIs(false);
        router.fast->traceIs(trace);
        for (Router* one : {&router, &definition}) {
            one->swapRoute(200, 400);
        }
        receive(4); // decisions are made
    }
    ~TracedFramesTest() override { labelCounters = {}; }

    /// Rounds of a frame with label 100, one with 200, one with a label that nobody knows, and an
    /// IP packet; all leave as by the definition. Returns how many did not go by decisions.
    std::uint64_t receive(int rounds) {
        const std::uint64_t before = router.fast->counts().slow;
        for (int i = 0; i < rounds; ++i) {
            for (Router* one : {&router, &definition}) {
                one->receive({frameOf({{100}}), frameOf({{200}}), frameOf({{999}}),
                              frameOf({{100}}, Router::packet(0x0a000903))});
            }
        }
        expectSame(router, definition);
        return router.fast->counts().slow - before;
    }
    TraceFilter filter;

    Router router;
    Router definition;
    LiveTrace trace{router.tables.ports};
};

/// Of each line the frame's number, which is behind "frame ".
std::set<std::string> framesIn(const LiveTrace& trace) {
    std::set<std::string> frames;
    for (const std::string& line : trace.lines()) {
        frames.insert(line.substr(6, line.find(' ', 6) - 6));
    }
    return frames;
}

} // namespace

TEST_F(TracedFramesTest, WithoutATraceAllGoByDecisions) {
    EXPECT_EQ(receive(3), 0U);
    EXPECT_TRUE(trace.lines().empty());
}

TEST_F(TracedFramesTest, OnlyFramesWithTheLabelLeaveTheFastPath) {
    filter.label = 200;
    trace.start(filter);
    EXPECT_EQ(receive(3), 3U);
    EXPECT_EQ(framesIn(trace), (std::set<std::string>{"18", "22", "26"}));
    EXPECT_EQ(trace.frames(), 3U);
    trace.stop();
    EXPECT_EQ(receive(3), 0U) << "at once, since nothing but the label was void";
}

TEST_F(TracedFramesTest, OnlyFramesOfThePortLeaveTheFastPath) {
    filter.port = Router::east;
    trace.start(filter);
    EXPECT_EQ(receive(3), 0U) << "they come in at west";
    filter.port = Router::west;
    trace.start(filter);
    EXPECT_EQ(receive(1), 4U);
    EXPECT_EQ(trace.frames(), 4U);
    trace.stop();
    EXPECT_EQ(receive(3), 0U);
}

TEST_F(TracedFramesTest, OnlyPacketsForThePrefixLeaveTheFastPath) {
    filter.prefix = Lumo::IpGenPrefix::of(Lumo::IpGenAddr::fromText("10.0.9.0"), 24);
    trace.start(filter);
    EXPECT_EQ(receive(3), 3U);
    EXPECT_EQ(framesIn(trace), (std::set<std::string>{"20", "24", "28"}));
}

TEST_F(TracedFramesTest, FramesThatGoNowhereForTheReasonLeaveTheFastPath) {
    filter.reason = "No route";
    trace.start(filter);
    const std::uint64_t slow = receive(3);
    EXPECT_EQ(slow, 3U);
    EXPECT_EQ(framesIn(trace), (std::set<std::string>{"19", "23", "27"}));
    ASSERT_FALSE(trace.lines().empty());
    EXPECT_EQ(trace.lines().front(),
              "frame 19 west - fate: dropped, reason No route; the next ones from this port with "
              "this label are traced");
    EXPECT_GT(trace.lines().size(), 3U) << "the second is traced step by step";
    filter.reason = "another reason";
    trace.start(filter);
    EXPECT_EQ(receive(3), 0U);
}

TEST_F(TracedFramesTest, FramesThatDoNotFitAllThatIsAskedForStayOnTheFastPath) {
    filter.label = 200;
    filter.port = Router::east;
    trace.start(filter);
    EXPECT_EQ(receive(3), 0U) << "those with the label come in at west";
    filter.label = 100;
    filter.port = Router::west;
    filter.prefix = Lumo::IpGenPrefix::of(Lumo::IpGenAddr::fromText("10.0.9.0"), 24);
    trace.start(filter);
    EXPECT_EQ(receive(3), 3U);
    EXPECT_EQ(framesIn(trace), (std::set<std::string>{"32", "36", "40"}));
    filter = {};
    filter.reason = "No route";
    filter.port = Router::east;
    trace.start(filter);
    EXPECT_EQ(receive(3), 0U);
    EXPECT_EQ(trace.frames(), 0U);
}

TEST_F(TracedFramesTest, OfLargeBurstsOneIn32IsSearched) {
    constexpr std::size_t bursts = 64;
    constexpr std::size_t size = 32;
    filter.prefix = Lumo::IpGenPrefix::of(Lumo::IpGenAddr::fromText("10.0.9.0"), 24);
    filter.limit = 10'000;
    trace.start(filter);
    const std::vector<Bytes> burst(size, frameOf({{100}}, Router::packet(0x0a000903)));
    router.receive(burst); // the trace is taken over
    const std::uint64_t before = router.fast->counts().slow;
    for (std::size_t i = 0; i < bursts; ++i) {
        router.receive(burst);
    }
    EXPECT_EQ(router.fast->counts().slow - before, 2 * size);
}

TEST_F(TracedFramesTest, AllLinesAreWrittenAsTheyAreMade) {
    std::vector<std::string> lines;
    trace.writeAllTo([&](std::string_view line) { lines.emplace_back(line); });
    EXPECT_EQ(receive(1), 4U);
    EXPECT_TRUE(trace.lines().empty());
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front().find("frame 17 west - "), 0U) << lines.front();
    EXPECT_EQ(lines.back(), "frame 20 west - fate: forwarded");
    trace.timeIs(LiveTrace::Clock::now() + std::chrono::hours(10'000));
    EXPECT_TRUE(trace.isOn());
}

TEST_F(TracedFramesTest, AllAreTracedUntilThereAreEnough) {
    filter.limit = 6;
    trace.start(filter);
    receive(3);
    EXPECT_FALSE(trace.isOn());
    EXPECT_EQ(trace.frames(), 6U);
    EXPECT_EQ(framesIn(trace), (std::set<std::string>{"17", "18", "19", "20", "21", "22"}));
    EXPECT_EQ(receive(3), 0U);
}

TEST_F(TracedFramesTest, ItEndsWhenItsTimeIsOver) {
    const auto now = LiveTrace::Clock::now();
    filter.time = std::chrono::seconds(5);
    trace.start(filter, now);
    trace.timeIs(now + std::chrono::milliseconds(4999));
    EXPECT_TRUE(trace.isOn());
    trace.timeIs(now + std::chrono::seconds(5));
    EXPECT_FALSE(trace.isOn());
}

TEST_F(TracedFramesTest, EveryLineNamesTheFrameThePortAndTheTable) {
    filter.label = 100;
    filter.limit = 1;
    trace.start(filter);
    receive(1);
    ASSERT_GE(trace.lines().size(), 4U);
    for (const std::string& line : trace.lines()) {
        EXPECT_EQ(line.find("frame 17 west - "), 0U) << line; // the scripted handler asks no table
    }
    EXPECT_EQ(trace.lines().back(), "frame 17 west - fate: forwarded");
}

TEST_F(TracedFramesTest, NoMoreLinesAreKeptThanThereMayBe) {
    filter.limit = 10'000;
    trace.start(filter);
    receive(400);
    EXPECT_EQ(trace.lines().size(), LiveTrace::mostLines);
    EXPECT_GT(trace.end(), LiveTrace::mostLines);
}

} // namespace TracedFramesTest
