#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>

#include "FastPath/FastPath.h"
#include "ForwarderTesting.h"
#include "LocalTables.h"

/// Routers whose handler can say in advance what it does, to be compared with each other.
namespace FastPathTesting {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using Ovix::DecidedBy;
using Ovix::LabelDecision;
using Ovix::RoutingNexthop;

/// The counters that labels are counted in by whichever router is at work.
inline Ptr<Counter::OvixLfibCounterCollection> labelCounters;

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

inline Bytes frameOf(const std::vector<Entry>& entries, const Bytes& beneath = Router::packet()) {
    return join({eth(ethMpls), stack(entries), beneath});
}

/// Frames that decisions settle, and others that they must leave alone.
inline Frames manyKinds() {
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

inline void expectSame(const Router& made, const Router& expected) {
    for (std::size_t i = 0; i < made.out.size(); ++i) {
        EXPECT_EQ(made.out[i].frames, expected.out[i].frames) << i;
        EXPECT_EQ(made.out[i].times, expected.out[i].times) << i;
        EXPECT_EQ(made.out[i].originalLengths, expected.out[i].originalLengths) << i;
    }
    EXPECT_EQ(made.cpu.frames, expected.cpu.frames);
    EXPECT_EQ(made.traces(), expected.traces());
}

} // namespace FastPathTesting
