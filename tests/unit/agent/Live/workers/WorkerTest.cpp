#include "Live/workers/Worker.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <thread>

#include "FastPathTesting.h"
#include "HeapCount.h"
#include "MemoryQueue.h"
#include "Posix/FileDescriptor.h"

namespace WorkerTest {

using namespace FastPathTesting;
using TestSupport::MemoryQueue;

namespace {

class WorkerTest : public ::testing::Test {
  protected:
    WorkerTest() {
        definition.fast->isOnIs(false);
        for (Router* one : {&router, &definition}) {
            one->swapRoute(200, 400);
            one->popRoute(102);
        }
        labelCounters = router.counted;
        worker.ports().push_back(
            std::make_unique<MemoryQueue>([this] { return std::exchange(burst, {}); }));
        for (PortIndex i = 0; i < router.out.size(); ++i) {
            outs.push_back(std::make_unique<MemoryQueue>(nullptr, &router.out[i]));
            worker.portIs(i, *outs.back());
        }
        for (const std::uint32_t label : {100U, 102U, 200U}) {
            decide(label);
        }
    }
    ~WorkerTest() override { labelCounters = {}; }

    /// A frame with an undecided label is left, and its label decided.
    void decide(std::uint32_t label) {
        Burst made({frameOf({{label}})});
        labelCounters = router.counted;
        router.fast->decideAhead();
        ASSERT_TRUE(router.fast->receiveLeft(made.frames().front()));
        ASSERT_FALSE(router.fast->decideAhead());
        definition.receive({frameOf({{label}})});
    }
    /// What the packet thread does beside the worker.
    std::size_t takeLeft() {
        std::size_t left = 0;
        for (FrameRing* lane : {&worker.lanes().urgent, worker.lanes().ofPorts[0].get(),
                                worker.lanes().ofPorts[1].get()}) {
            for (WritableFrame frame; lane->front(frame); lane->pop()) {
                EXPECT_TRUE(router.fast->receiveLeft(frame));
                ++left;
            }
        }
        return left;
    }
    void collect() {
        router.forwarder->accounts().absorb(worker.accounts());
        router.fast->addFast(worker.takeFast());
        for (PortIndex i = 0; i < router.out.size(); ++i) {
            router.tables.ports.ports()[i].sent += std::exchange(worker.own().all()[i].sent, {});
        }
        for (std::uint32_t label = 0; label < 1024; label += 64) {
            router.counted->absorbLabels(label, worker.labels(),
                                         [](std::uint32_t) { return true; });
        }
    }
    /// Returns how many frames the worker has left.
    std::size_t receive(const Frames& frames) {
        Burst made(frames);
        burst = made.frames();
        labelCounters = router.counted;
        worker.turn();
        const std::size_t left = takeLeft();
        collect();
        return left;
    }

    Router router;
    Router definition;
    Posix::FileDescriptor wake{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    std::span<WritableFrame> burst;
    std::vector<std::unique_ptr<LivePort>> outs;
    Worker worker{router.fast->shared(), wake.value()};
};

} // namespace

TEST_F(WorkerTest, ForwardsAndCountsAsTheDefinition) {
    for (const Bytes& frame : manyKinds()) {
        receive({frame});
        definition.receive({frame});
        expectSame(router, definition);
    }
    EXPECT_GT(router.fastFrames(), 4U);
}

TEST_F(WorkerTest, FramesOfDecidedLabelsAreNotLeft) {
    EXPECT_EQ(receive({frameOf({{100}}), frameOf({{200}}), frameOf({{102}})}), 0U);
    EXPECT_EQ(receive({frameOf({{100}}), frameOf({{100, 0, 1}}), frameOf({{100}})}), 1U);
}

TEST_F(WorkerTest, TakesNothingFromTheHeapOnceWarm) {
    if (TestSupport::slabsFromHeap) {
        GTEST_SKIP() << "the address sanitizer counts otherwise";
    }
    const Frames frames{frameOf({{100}}), frameOf({{200}}), frameOf({{102}}), frameOf({{999}})};
    receive(frames);
    router.fast->decideAhead();
    MemoryQueue sink;
    for (PortIndex i = 0; i < router.out.size(); ++i) {
        worker.portIs(i, sink);
    }
    receive(frames);
    for (int time = 0; time < 3; ++time) {
        Burst made(frames);
        burst = made.frames();
        const std::uint64_t before = TestSupport::heapAllocations;
        worker.turn();
        EXPECT_EQ(TestSupport::heapAllocations, before);
    }
    EXPECT_EQ(sink.sent(), 12U);
}

TEST_F(WorkerTest, ALabelThatNoTableHasIsDecidedWhenAFrameBringsIt) {
    EXPECT_EQ(receive({frameOf({{999}})}), 1U);
    router.fast->decideAhead();
    EXPECT_EQ(receive({frameOf({{999}})}), 0U);
    definition.receive({frameOf({{999}}), frameOf({{999}})});
    expectSame(router, definition);
}

TEST_F(WorkerTest, WhatIsLeftIsOnItsWayBeforeALabelHasItsFirstDecision) {
    receive({frameOf({{999}})});
    Burst made({frameOf({{999}})});
    burst = made.frames();
    worker.turn();
    std::size_t left = 0;
    router.fast->settleIs([&] { left = takeLeft(); });
    router.fast->decideAhead();
    EXPECT_EQ(left, 1U);
}

TEST_F(WorkerTest, WhatIsLeftIsOnItsWayBeforeItsNeighbourIsKnown) {
    router.swapRoute(201, 401, "east", "10.0.2.77");
    decide(201);
    Burst made({frameOf({{201}})});
    burst = made.frames();
    worker.turn();
    router.tables.neighbours.learn(Lumo::IpGenAddr::fromText("10.0.2.77"), Router::east,
                                   {2, 0, 0, 0, 0, 7});
    std::size_t left = 0;
    router.fast->settleIs([&] { left += takeLeft(); });
    router.fast->decideAhead();
    EXPECT_EQ(left, 1U);
    EXPECT_EQ(receive({frameOf({{201}})}), 0U);
}

TEST_F(WorkerTest, WhatIsLeftForATraceIsOnItsWayBeforeThatEnds) {
    LiveTrace trace{router.tables.ports};
    router.fast->traceIs(trace);
    TraceFilter filter;
    filter.label = 200;
    filter.port = 0;
    trace.start(filter);
    router.fast->decideAhead();
    Burst made({frameOf({{200}})});
    burst = made.frames();
    worker.turn();
    trace.stop();
    std::size_t left = 0;
    router.fast->settleIs([&] { left += takeLeft(); });
    router.fast->decideAhead();
    EXPECT_EQ(left, 1U);
}

TEST_F(WorkerTest, WhatIsChangedIsTakenOverBeforeTheGateOpens) {
    router.swapRoute(201, 401, "east", "10.0.2.77");
    decide(201);
    {
        const ForwardingGate::Closed closed(router.tables.gate);
        router.tables.neighbours.learn(Lumo::IpGenAddr::fromText("10.0.2.77"), Router::east,
                                       {2, 0, 0, 0, 0, 7});
    }
    EXPECT_EQ(receive({frameOf({{201}})}), 0U);
}

TEST_F(WorkerTest, FramesWaitUntilThePacketThreadHasHeardThatALinkIsDown) {
    bool hasFallen = true;
    std::atomic<bool> hasTaken = false;
    Worker watching{router.fast->shared(), wake.value(), [&] { return hasFallen; }};
    watching.ports().push_back(std::make_unique<MemoryQueue>([&] {
        hasTaken = true;
        return std::span<WritableFrame>();
    }));
    std::uint64_t times = 0;
    std::thread packetThread([&] {
        pollfd woken{wake.value(), POLLIN, 0};
        EXPECT_EQ(poll(&woken, 1, 10000), 1);
        EXPECT_FALSE(hasTaken);
        EXPECT_EQ(read(wake.value(), &times, sizeof times), ssize_t{sizeof times});
        watching.call();
    });
    watching.turn();
    packetThread.join();
    EXPECT_TRUE(hasTaken);
    hasFallen = false;
    watching.turn();
    EXPECT_LT(read(wake.value(), &times, sizeof times), 0);
}

TEST_F(WorkerTest, IpPacketsAreNotLeftOnceAllDecisionsHaveBecomeVoid) {
    router.tables.ports.ports()[0].routesIp = true;
    IpRouteVia via;
    via.port = Router::east;
    via.nexthop = Lumo::IpGenAddr::fromText("10.0.2.2");
    router.tables.vrfs->fibIs("").routeIs({Lumo::IpGenAddr::fromText("10.9.0.0"), 16},
                                          IpRoute::forward({via}));
    const Bytes frame = join({eth(ethIpv4), Router::packet(0x0a090001)});
    for (int time = 0; time < 2; ++time) {
        ++router.tables.configured; // as when the configuration is read again
        Tessel::Changes::notice();
        while (router.fast->decideAhead()) {
        }
        EXPECT_EQ(receive({frame}), 0U) << time;
    }
}

TEST_F(WorkerTest, MoreThanFitsIsDroppedWithItsReason) {
    Frames many(burstFrames, frameOf({{100, 0, 1}}, filled(80, 7)));
    std::size_t given = 0;
    for (int i = 0; i < 100; ++i, given += many.size()) {
        Burst made(many);
        burst = made.frames();
        worker.turn();
    }
    const std::size_t left = takeLeft();
    collect();
    const Summary counts = router.summary();
    EXPECT_LT(left, given);
    EXPECT_EQ(counts.dropped.counts().at(std::string(Reason::workerQueueFull)), given - left);
    EXPECT_TRUE(counts.isBalanced());
}

TEST_F(WorkerTest, AFloodAtOnePortLeavesThoseOfAnotherTheirRoom) {
    const Frames many(burstFrames, frameOf({{100, 0, 1}}, filled(80, 7)));
    for (int i = 0; i < 100; ++i) {
        Burst made(many);
        burst = made.frames();
        worker.turn();
    }
    Burst made({many.front(), many.front()});
    for (WritableFrame& frame : made.frames()) {
        frame.port = 1;
    }
    burst = made.frames();
    worker.turn();
    std::size_t ofOther = 0;
    for (WritableFrame frame; worker.lanes().ofPorts[1]->front(frame);
         worker.lanes().ofPorts[1]->pop()) {
        ++ofOther;
    }
    EXPECT_EQ(ofOther, 2U);
}

TEST_F(WorkerTest, ProtocolsHaveALaneOfTheirOwn) {
    Frames many(burstFrames, frameOf({{100, 0, 1}}, filled(80, 7)));
    for (int i = 0; i < 100; ++i) {
        Burst made(many);
        burst = made.frames();
        worker.turn();
    }
    Burst made({frameOf({{1}, {100}})});
    burst = made.frames();
    worker.turn();
    WritableFrame frame;
    EXPECT_TRUE(worker.lanes().urgent.front(frame));
}

TEST_F(WorkerTest, WhileDecisionsMustNotBeUsedAllIsLeft) {
    router.fast->isOnIs(false);
    router.fast->decideAhead();
    EXPECT_EQ(receive({frameOf({{100}}), frameOf({{200}})}), 2U);
}

TEST_F(WorkerTest, FramesThatATraceAsksForAreLeft) {
    LiveTrace trace{router.tables.ports};
    router.fast->traceIs(trace);
    TraceFilter filter;
    filter.label = 200;
    trace.start(filter);
    router.fast->decideAhead();
    EXPECT_EQ(receive({frameOf({{100}}), frameOf({{200}})}), 1U);
}

TEST(UrgentFramesTest, AreThoseOfProtocolsAndWithReservedLabels) {
    using namespace TestSupport::Raw;
    const auto labelled = [](const std::vector<Entry>& entries, const Bytes& beneath) {
        return join({eth(ethMpls), stack(entries), beneath});
    };
    EXPECT_TRUE(isUrgent(labelled({{1}, {100}}, {})));
    EXPECT_TRUE(isUrgent(labelled({{100}, {13}}, {})));
    EXPECT_FALSE(isUrgent(labelled({{100}}, filled(40, 0))));
    EXPECT_FALSE(isUrgent(labelled({{100}}, ipv4({}, udp()))));
    Bytes echo = udp();
    echo[2] = 3503 >> 8;
    echo[3] = 3503 & 0xff;
    EXPECT_TRUE(isUrgent(labelled({{100}}, ipv4({}, echo))));
    EXPECT_TRUE(isUrgent(join({eth(ethIpv4), ipv4({}, echo)})));
    Bytes ospf = ipv4({}, udp());
    ospf[9] = 89;
    EXPECT_TRUE(isUrgent(join({eth(ethIpv4), ospf})));
    EXPECT_FALSE(isUrgent(join({eth(ethIpv4), ipv4({}, udp())})));
    EXPECT_FALSE(isUrgent(Bytes(5)));
    EXPECT_FALSE(isUrgent(join({eth(ethMpls), {0, 1}})));
}

} // namespace WorkerTest
