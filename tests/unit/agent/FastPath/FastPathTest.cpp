#include "FastPath/FastPath.h"

#include "FastPathTesting.h"
#include "HeapCount.h"
#include "Ovix/trace/Trace.h"
#include "Tessel/Exceptions.h"

namespace FastPathTest {

using namespace FastPathTesting;

namespace {

class FastPathTest : public ::testing::Test {
  protected:
    FastPathTest() { definition.fast->isOnIs(false); }
    ~FastPathTest() override { labelCounters = {}; }

    /// Both routers get the same routes.
    template <typename Change>
    void inBoth(Change&& change) {
        change(router);
        change(definition);
    }
    void routesOfManyKinds() {
        inBoth([](Router& one) {
            one.swapRoute(101, 301, "dark", "10.0.3.2");
            one.popRoute(102);
            one.swapRoute(103, 303, "east", "10.0.2.99"); // a neighbour that nobody knows
            one.swapRoute(104, 304);
            one.deciding->routes[104].by = DecidedBy::frame;
        });
    }

    Router router;
    Router definition;
};

} // namespace

TEST_F(FastPathTest, LeavesTheSameAsTheForwarderAlone) {
    routesOfManyKinds();
    for (int round = 0; round < 3; ++round) {
        inBoth([](Router& one) { EXPECT_EQ(one.receive(manyKinds()), manyKinds().size()); });
        inBoth([](Router& one) { one.receive(manyKinds(), 4); });
        expectSame(router, definition);
    }
    EXPECT_EQ(definition.fastFrames(), 0U);
    EXPECT_GE(router.fastFrames(), 3U * 11U);
}

TEST_F(FastPathTest, FramesOneAtATimeLeaveTheSame) {
    routesOfManyKinds();
    for (int round = 0; round < 3; ++round) {
        for (const Bytes& frame : manyKinds()) {
            inBoth([&](Router& one) { EXPECT_EQ(one.receive({frame}), 1U); });
            expectSame(router, definition); // at once: a frame alone waits for nobody
        }
    }
    EXPECT_GE(router.fastFrames(), 3U * 11U);
}

TEST_F(FastPathTest, WhileOffTheForwarderTakesAll) {
    router.receive({frameOf({{100}})});
    EXPECT_EQ(router.fastFrames(), 1U);
    router.fast->isOnIs(false);
    router.receive({frameOf({{100}}), frameOf({{999}})});
    EXPECT_EQ(router.fastFrames(), 1U);
    EXPECT_EQ(router.fast->counts().slow, 2U);
    EXPECT_EQ(router.out[Router::east].frames.size(), 2U);
    router.fast->isOnIs(true);
    router.receive({frameOf({{100}})});
    EXPECT_EQ(router.fastFrames(), 2U);
}

TEST_F(FastPathTest, WhileATraceIsOnTheForwarderTakesAll) {
    Ovix::TraceSource& source = Ovix::TraceSource::named("Test", "Test");
    router.receive({frameOf({{100}})});
    source.ringLevelIs(0);
    router.receive({frameOf({{100}}), frameOf({{100}})});
    EXPECT_EQ(router.fastFrames(), 1U);
    source.ringLevelIs(Ovix::TraceSource::off);
    router.receive({frameOf({{100}})});
    EXPECT_EQ(router.fastFrames(), 2U);
    EXPECT_EQ(router.out[Router::east].frames.size(), 4U);
}

TEST_F(FastPathTest, ALabelIsDecidedOnce) {
    for (int i = 0; i < 5; ++i) {
        router.receive(Frames(10, frameOf({{100}})));
        router.receive(Frames(10, frameOf({{999}})));
    }
    EXPECT_EQ(router.deciding->asked, 2U);
    EXPECT_EQ(router.fastFrames(), 100U);
}

TEST_F(FastPathTest, FramesOfNewLabelsAreMostlyNotWorthADecision) {
    constexpr std::uint32_t labels = 4000;
    for (std::uint32_t label = 1000; label < 1000 + labels; ++label) {
        router.receive({frameOf({{label}})});
    }
    EXPECT_LT(router.deciding->asked, labels / 4);
    EXPECT_GT(router.deciding->asked, labels / 40);
    EXPECT_EQ(router.summary().dropped.counts(),
              (std::map<std::string, std::uint64_t>{{"No route", labels}}));
}

TEST_F(FastPathTest, WhatAChangeHasMadeVoidIsDecidedAnewAtOnce) {
    router.receive({frameOf({{100}})});
    std::size_t before = 0;
    for (std::uint32_t label = 1000; before != router.deciding->asked; ++label) {
        before = router.deciding->asked;
        router.receive({frameOf({{label}})});
    }
    ++router.deciding->version;
    Tessel::Changes::notice();
    const std::uint64_t fast = router.fastFrames();
    router.receive({frameOf({{100}})});
    EXPECT_EQ(router.deciding->asked, before + 1);
    EXPECT_EQ(router.fastFrames(), fast + 1);
}

TEST_F(FastPathTest, FramesLeaveInTheOrderTheyCame) {
    inBoth([](Router& one) {
        one.swapRoute(104, 304);
        one.deciding->routes[104].by = DecidedBy::frame;
        one.swapRoute(105, 305, "plain", "10.0.4.2");
        Frames frames;
        for (std::uint8_t i = 0; i < 60; ++i) {
            frames.push_back(frameOf({{i % 7 == 3   ? 104U
                                       : i % 5 == 4 ? 105U
                                                    : 100U,
                                       0, static_cast<std::uint8_t>(100 + i)}}));
        }
        one.receive(frames);
    });
    expectSame(router, definition);
    EXPECT_GT(router.fastFrames(), 40U);
}

TEST_F(FastPathTest, TheForwardersFrameIsTheCurrentOne) {
    router.swapRoute(104, 304);
    router.deciding->routes[104].by = DecidedBy::frame;
    const Frame& current = router.fast->current();
    std::vector<std::uint32_t> seen;
    router.deciding->onPacket = [&] {
        seen.push_back(current.time.nanoseconds);
        EXPECT_EQ(Bytes(current.bytes.begin(), current.bytes.end()), frameOf({{104}}));
    };
    router.receive({frameOf({{100}}), frameOf({{104}}), frameOf({{100}}), frameOf({{104}})});
    EXPECT_EQ(seen, (std::vector<std::uint32_t>{1, 3}));
}

TEST_F(FastPathTest, AGenerationLostInMidBurstLeavesTheRestToBePassedAgain) {
    inBoth([](Router& one) {
        one.swapRoute(104, 304);
        one.deciding->routes[104].by = DecidedBy::frame;
        one.receive({frameOf({{100}})});
    });
    router.deciding->onPacket = [&] {
        router.deciding->onPacket = [] {};
        throw Tessel::SnapshotLost("replaced");
    };
    Burst burst({frameOf({{100}}), frameOf({{999}}), frameOf({{104}}), frameOf({{100}})});
    ASSERT_EQ(router.receive(burst.frames()), 2U);
    EXPECT_EQ(router.out[Router::east].frames.size(), 2U);
    EXPECT_EQ(router.summary().in.frames, 3U);
    EXPECT_EQ(router.receive(burst.frames().subspan(2)), 2U);
    definition.receive({frameOf({{100}}), frameOf({{999}}), frameOf({{104}}), frameOf({{100}})});
    expectSame(router, definition);
}

TEST_F(FastPathTest, ANewVersionOfTheHandlerVoidsItsDecisions) {
    router.receive({frameOf({{100}})});
    router.swapRoute(100, 301);
    ++router.deciding->version;
    Tessel::Changes::notice();
    router.receive({frameOf({{100}})});
    const auto sent = [](std::uint32_t label) {
        return join({Router::eastHeader(ethMpls), stack({{label, 0, 63}}), Router::packet()});
    };
    EXPECT_EQ(router.out[Router::east].frames, (Frames{sent(300), sent(301)}));
    EXPECT_EQ(router.deciding->asked, 2U);
    EXPECT_EQ(router.fastFrames(), 2U);
}

TEST_F(FastPathTest, ANeighbourThatMovesIsFollowed) {
    const auto address = Lumo::IpGenAddr::fromText("10.0.2.9");
    inBoth([](Router& one) { one.swapRoute(105, 305, "east", "10.0.2.9"); });
    for (const std::uint8_t last : Bytes{1, 2}) {
        inBoth([&](Router& one) {
            one.tables.neighbours.learn(address, Router::east, {2, 0, 0, 0, 9, last});
            one.receive({frameOf({{105}}), frameOf({{105}})});
            EXPECT_EQ(one.out[Router::east].frames.back()[5], last);
        });
        expectSame(router, definition);
    }
    inBoth([&](Router& one) {
        one.tables.neighbours.forget(address, Router::east);
        one.receive({frameOf({{105}})});
    });
    expectSame(router, definition);
    EXPECT_EQ(router.deciding->asked, 1U);
    EXPECT_EQ(router.fastFrames(), 4U);
}

TEST_F(FastPathTest, OnceWarmNothingIsTakenFromTheHeap) {
    class Discarding : public TransmitPort {
      public:
        void transmit(const Frame&) override { ++frames; }
        std::size_t frames = 0;
    } sink;
    for (Port& port : router.ports.ports()) {
        port.out = &sink;
    }
    router.popRoute(102);
    const Frames frames{frameOf({{100}}), frameOf({{102}}), frameOf({{999}}),
                        frameOf({{100}, {102}})};
    for (int i = 0; i < 3; ++i) {
        router.receive(frames);
    }
    Burst burst(frames);
    const std::uint64_t warm = TestSupport::heapAllocations;
    router.receive(burst.frames());
    EXPECT_EQ(TestSupport::heapAllocations, warm);
    EXPECT_EQ(router.fastFrames(), 16U);
    EXPECT_EQ(sink.frames, 12U);
}

} // namespace FastPathTest
