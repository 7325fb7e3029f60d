#include "FastPath/FastPath.h"

#include <map>
#include <memory>

#include "ForwarderTesting.h"
#include "HeapCount.h"
#include "LocalTables.h"
#include "Ovix/trace/Trace.h"
#include "Tessel/Exceptions.h"

namespace FastPathTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using Ovix::DecidedBy;
using Ovix::LabelDecision;
using Ovix::RoutingNexthop;

namespace {

/// The counters that labels are counted in by whichever router is at work.
Ptr<Counter::OvixLfibCounterCollection> labelCounters;

class CountingAction : public Ovix::CounterActionImpl {
  public:
    explicit CountingAction(Ptr<Ovix::LfibCounterActionInfo> info) : info_(std::move(info)) {}
    static Ptr<CounterActionImpl> fromInfo(const Ptr<Ovix::CounterActionInfo>& info) {
        return Tessel::make<CountingAction>(Tessel::ptrCast<Ovix::LfibCounterActionInfo>(info));
    }
    std::string_view name() const noexcept override { return "CountingAction"; }
    void apply(const Ptr<Ovix::RoutingContext>&) override {
        counters_->counterCollectionIs(info_->routeKey()).countBytes(info_->byteCount());
    }
    Counter::OvixLfibCounterCollection* countsIn() const noexcept override {
        return counters_.get();
    }

  private:
    Ptr<Counter::OvixLfibCounterCollection> counters_ = labelCounters;
    Ptr<Ovix::LfibCounterActionInfo> info_;
};

/// Routes labels as the test says, and decides by the same routes.
class DecidingHandler : public Ovix::RoutingHandler {
  public:
    struct Route {
        std::function<Ptr<RoutingNexthop>()> nexthop;
        DecidedBy by = DecidedBy::label;
        bool isCounted = false;
    };

    DecidingHandler() : RoutingHandler("Mpls") {}

    void processPacket(const Ptr<Ovix::RoutingOutput>& output,
                       const Ptr<Ovix::RoutingContext>& context,
                       const Ptr<Ovix::PacketHeader>& header,
                       const Ptr<Ovix::RoutingVrfRoot>&) override {
        onPacket();
        const Ovix::MplsHeaderData* const labels = header ? mplsHeaderData(*header) : nullptr;
        if (labels == nullptr || labels->entries() == 0) {
            context->namedCounters()->count(noRoute);
            return;
        }
        const Lumo::MplsLabelEntry top = *labels->begin();
        const auto bytes = static_cast<std::uint32_t>(context->packetContext()->pkt()->bytes());
        if (top.ttl() <= 1) {
            output->nexthops()->nexthopEnq(cpuTrap());
            return;
        }
        for (const Lumo::MplsLabelEntry entry : *labels) {
            const bool isFound = routes.count(entry.label().value()) > 0;
            context->namedCounters()->count(isFound ? found : missed);
            if (!isFound) {
                break;
            }
        }
        if (const auto nexthop = nexthopFor(top.label(), bytes)) {
            output->nexthops()->nexthopEnq(nexthop);
        } else {
            context->namedCounters()->count(noRoute);
        }
    }

    bool decide(Lumo::MplsLabel label, Ovix::Beneath, LabelDecision& decision) override {
        ++asked;
        const auto at = routes.find(label.value());
        decision.isFound = at != routes.end();
        decision.isLookupKnown = true;
        decision.lookup = {&names->counter(decision.isFound ? found : missed)};
        decision.choices.clear();
        if (!decision.isFound) {
            const LabelDecision::Events events{&names->counter(noRoute)};
            decision.choices.push_back({1, DecidedBy::label, events, nullptr});
            return true;
        }
        decision.choices.push_back({1, at->second.by, {}, nexthopFor(label, 0)});
        return at->second.by != DecidedBy::frame;
    }
    std::uint64_t decisionVersion() const noexcept override { return version; }

    std::map<std::uint32_t, Route> routes;
    std::function<void()> onPacket = [] {};
    std::uint64_t version = 0;
    std::size_t asked = 0; ///< to decide

  private:
    static constexpr Ovix::CounterKey found{"Test", "Mpls", "Found"};
    static constexpr Ovix::CounterKey missed{"Test", "Mpls", "Not found"};
    static constexpr Ovix::CounterKey noRoute{"Drop", "Mpls", "No route"};

    Ptr<RoutingNexthop> nexthopFor(Lumo::MplsLabel label, std::uint32_t bytes) const {
        const auto at = routes.find(label.value());
        if (at == routes.end()) {
            return nullptr;
        }
        Ptr<RoutingNexthop> made = at->second.nexthop();
        if (at->second.isCounted) {
            made->rewriteInfos().finalCounterActionInfoEnq(
                Tessel::make<Ovix::LfibCounterActionInfo>(Mpls::RouteKey::fromLabel(label), bytes));
        }
        return made;
    }

    Ptr<Ovix::OvixNamedCounters> names = Tessel::make<Ovix::OvixNamedCounters>();
};

/// Received frames, each behind the headroom that ports give.
class Burst {
  public:
    explicit Burst(const Frames& frames, std::size_t snapped = 0) : memory_(frames.size()) {
        for (std::size_t i = 0; i < frames.size(); ++i) {
            memory_[i] = join({filled(frameHeadroom, 0xa5), frames[i]});
            const auto size = static_cast<std::uint32_t>(frames[i].size());
            burst_.push_back({memory_[i].data() + frameHeadroom, size,
                              size + static_cast<std::uint32_t>(snapped), frameHeadroom, 0,
                              CaptureTime{7, static_cast<std::uint32_t>(i)}});
        }
    }
    std::span<WritableFrame> frames() noexcept { return burst_; }

  private:
    std::vector<Bytes> memory_;
    std::vector<WritableFrame> burst_;
};

/// A router of four memory ports that routes labels by a handler which can say so in advance.
class Router : public ForwarderFixture {
  public:
    using ForwarderFixture::cpu, ForwarderFixture::forwarder, ForwarderFixture::out,
        ForwarderFixture::ports, ForwarderFixture::summary, ForwarderFixture::tables,
        ForwarderFixture::east, ForwarderFixture::west, ForwarderFixture::packet,
        ForwarderFixture::eastHeader;

    Router() {
        manager->routingHandlers()->handlerIs(deciding);
        Ovix::RewriteInfoImplMap& rewrites = *manager->sharedObjects()->rewriteInfoImplMap();
        rewrites.mapIs("MplsIpPush", Ovix::MplsIpPushRewriteImpl::fromInfo);
        rewrites.mapIs("MplsTtl", Ovix::MplsTtlRewriteImpl::fromInfo);
        rewrites.counterMapIs(Ovix::LfibCounterActionInfo::infoTypeName.text(),
                              CountingAction::fromInfo);
        labelCounters = counted;
        forwarder.emplace(manager, tables, cpu);
        fast.emplace(*forwarder, manager, tables, local.published);
        swapRoute(100, 300);
    }
    void TestBody() override {}

    void swapRoute(std::uint32_t label, std::uint16_t with, const std::string& port = "east",
                   const std::string& address = "10.0.2.2") {
        deciding->routes[label] = {
            [=] { return withRewrite(nexthop(port, address), swapInfo(with)); }, DecidedBy::label,
            true};
    }
    void popRoute(std::uint32_t label) {
        deciding->routes[label] = {
            [] { return withRewrite(nexthop("east", "10.0.2.2"), popInfo()); }, DecidedBy::beneath,
            true};
    }
    std::size_t receive(const Frames& frames, std::size_t snapped = 0) {
        Burst burst(frames, snapped);
        return receive(burst.frames());
    }
    std::size_t receive(std::span<WritableFrame> frames) {
        labelCounters = counted;
        return fast->receive(frames);
    }
    std::uint64_t fastFrames() const { return fast->counts().fast; }

    /// All that can be seen of what was done, in words.
    std::vector<std::string> traces() const {
        std::vector<std::string> all;
        const Summary counts = summary();
        const auto note = [&](const std::string& what, const Traffic& traffic) {
            all.push_back(what + ": " + std::to_string(traffic.frames) + " frames, " +
                          std::to_string(traffic.bytes) + " bytes");
        };
        note("in", counts.in);
        for (const PortTraffic& port : counts.forwarded) {
            note(port.port, port.traffic);
        }
        for (const auto* reasons : {&counts.dropped, &counts.punted, &counts.handedOn}) {
            for (const auto& [reason, frames] : reasons->counts()) {
                all.push_back(reason + ": " + std::to_string(frames));
            }
        }
        for (const NamedCounter& counter : counts.counters) {
            all.push_back(counter.category + "/" + counter.reason + ": " +
                          std::to_string(counter.count));
        }
        counted->forEach([&](Mpls::RouteKey key, const Counter::PktCounter& counter) {
            note(std::to_string(key.topLabel().value()), {counter.packets(), counter.bytes()});
        });
        return all;
    }

    Ptr<DecidingHandler> deciding = Tessel::make<DecidingHandler>();
    Ptr<Counter::OvixLfibCounterCollection> counted =
        Tessel::make<Counter::OvixLfibCounterCollection>("labels");
    TestSupport::LocalTables local;
    std::optional<FastPath> fast;
};

Bytes frameOf(const std::vector<Entry>& entries, const Bytes& beneath = Router::packet()) {
    return join({eth(ethMpls), stack(entries), beneath});
}

/// Frames that decisions settle, and others that they must leave alone.
Frames manyKinds() {
    return {frameOf({{100}}),
            frameOf({{100, 5, 2}}),
            frameOf({{100, 0, 1}}),
            frameOf({{100}, {200}}),
            frameOf({{100}, {102}, {103}}),
            frameOf({{100}}, filled(83, 1)), // one byte more than the port takes
            frameOf({{100}}, filled(82, 1)),
            frameOf({{101}}),
            frameOf({{102, 3, 9}}),
            frameOf({{102}}, ipv6({}, udp())),
            frameOf({{102}}, filled(30, 0)),
            frameOf({{102}, {100}}),
            frameOf({{103}}),
            frameOf({{104}}),
            frameOf({{999}}),
            frameOf({{999}, {100}}),
            frameOf({{3}, {100}}),
            frameOf({{100}}, {}),
            join({eth(ethVlan), tag(5, ethMpls), stack({{100}}), Router::packet()}),
            join({eth(ethMpls), {0, 6}}),
            join({eth(ethIpv4), Router::packet()}),
            frameOf({{100, 0, 40}}, Router::packet(0x0a000203))};
}

void expectSame(const Router& made, const Router& expected) {
    for (std::size_t i = 0; i < made.out.size(); ++i) {
        EXPECT_EQ(made.out[i].frames, expected.out[i].frames) << i;
        EXPECT_EQ(made.out[i].times, expected.out[i].times) << i;
        EXPECT_EQ(made.out[i].originalLengths, expected.out[i].originalLengths) << i;
    }
    EXPECT_EQ(made.cpu.frames, expected.cpu.frames);
    EXPECT_EQ(made.traces(), expected.traces());
}

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
