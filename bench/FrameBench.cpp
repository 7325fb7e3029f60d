// Time and heap allocations per frame: for the plugin alone and for the agent's whole road.

#include <benchmark/benchmark.h>
#include <memory>

#include "Allocations.h"
#include "EdgeScenarios.h"
#include "Lumo/Pkt.h"
#include "Mpls/Hardware/Status.h"
#include "Mpls/LfibWriter.h"
#include "MulticastBench.h"
#include "Router.h"
#include "Scenarios.h"

namespace {

using Bench::Router;
using Bench::Scenario;

constexpr std::size_t batch = 256;

using MakeScenario = Scenario (*)(const std::string& name, std::uint32_t routes);

/// The scenario asked for last, kept because a million routes take a while to set up.
struct Setup {
    Scenario scenario;
    std::unique_ptr<Router> router;
};

Setup& setupFor(const std::string& name, std::uint32_t routes,
                MakeScenario make = Bench::makeScenario) {
    static std::string key;
    static Setup setup;
    const std::string wanted = name + "/" + std::to_string(routes);
    if (key != wanted) {
        setup.router.reset();
        setup.scenario = make(name, routes);
        setup.router = std::make_unique<Router>(setup.scenario.config);
        setup.scenario.config = {};
        key = wanted;
    }
    return setup;
}

void countPerFrame(benchmark::State& state, std::uint64_t allocations) {
    const auto frames = static_cast<double>(state.iterations() * static_cast<std::int64_t>(batch));
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(batch));
    state.counters["allocs/frame"] = static_cast<double>(allocations) / frames;
    state.counters["ns/frame"] =
        benchmark::Counter(frames, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

/// From processPacket to the filled output; the frames are taken in and parsed beforehand.
void pluginAlone(benchmark::State& state, const std::string& name) {
    Setup& setup = setupFor(name, static_cast<std::uint32_t>(state.range(0)));
    const auto handler = setup.router->mplsHandler();
    const auto counters = Tessel::make<Ovix::OvixNamedCounters>();
    const auto packets = Lumo::globalPktManager();
    const auto root = Tessel::make<Ovix::RoutingVrfRoot>();
    std::vector<Ptr<Ovix::RoutingContext>> contexts(batch);
    std::vector<Ptr<Ovix::PacketHeader>> headers(batch);
    std::vector<Ptr<Ovix::RoutingOutput>> outputs(batch);
    std::size_t next = 0;
    std::uint64_t allocations = 0;
    bool warm = false;
    for (auto _ : state) {
        state.PauseTiming();
        for (std::size_t i = 0; i < batch; ++i, ++next) {
            const auto& frame = setup.scenario.frames[next % setup.scenario.frames.size()];
            contexts[i] = Tessel::make<Ovix::RoutingContext>(
                next, Tessel::make<Ovix::PacketContext>(packets->newPkt(frame)), counters);
            headers[i] = contexts[i]->packetContext()->parsedPkt().header(1);
            outputs[i] = Tessel::make<Ovix::RoutingOutput>();
        }
        const std::uint64_t before = Bench::allocations();
        state.ResumeTiming();
        for (std::size_t i = 0; i < batch; ++i) {
            handler->processPacket(outputs[i], contexts[i], headers[i], root);
        }
        state.PauseTiming();
        allocations += warm ? Bench::allocations() - before : 0;
        warm = true;
        state.ResumeTiming();
    }
    countPerFrame(state, allocations);
}

/// From the received bytes to the transmitted ones.
void wholeRoad(benchmark::State& state, const std::string& name, MakeScenario make) {
    Setup& setup = setupFor(name, static_cast<std::uint32_t>(state.range(0)), make);
    const OvixAgent::PortIndex port = setup.scenario.port;
    const auto& frames = setup.scenario.frames;
    // Counters of labels come into being with their first packet, so every frame is sent once.
    for (const auto& frame : frames) {
        setup.router->forwarder().receive(
            {port, {}, frame, static_cast<std::uint32_t>(frame.size())});
    }
    std::size_t next = 0;
    const std::uint64_t outBefore = setup.router->framesOut();
    const std::uint64_t before = Bench::allocations();
    for (auto _ : state) {
        for (std::size_t i = 0; i < batch; ++i, ++next) {
            const auto& frame = frames[next % frames.size()];
            setup.router->forwarder().receive(
                {port, {}, frame, static_cast<std::uint32_t>(frame.size())});
        }
    }
    countPerFrame(state, Bench::allocations() - before);
    state.counters["out/frame"] =
        static_cast<double>(setup.router->framesOut() - outBefore) / static_cast<double>(next);
}

/// The floor: a copy of the frame, an index, a label store.
void floorOfCopyAndSwap(benchmark::State& state) {
    const Scenario scenario = Bench::makeScenario("swap", 1000);
    std::vector<std::uint32_t> table(1U << 20U, 300);
    std::vector<std::uint8_t> out(128);
    std::size_t next = 0;
    for (auto _ : state) {
        for (std::size_t i = 0; i < batch; ++i, ++next) {
            const auto& frame = scenario.frames[next % scenario.frames.size()];
            std::copy(frame.begin(), frame.end(), out.begin());
            const auto entry = Lumo::MplsLabelEntry::load(out.data() + 14);
            Lumo::MplsLabelEntry(Lumo::MplsLabel(table[entry.label().value()]), entry.tc(),
                                 entry.bos(), static_cast<std::uint8_t>(entry.ttl() - 1))
                .store(out.data() + 14);
            benchmark::DoNotOptimize(out.data());
        }
    }
    countPerFrame(state, 0);
}

/// A route and the interface of its adjacency's first via by label, at random.
void hardwareLookup(benchmark::State& state) {
    const auto routes = static_cast<std::uint32_t>(state.range(0));
    Setup& setup = setupFor("swap", routes);
    const Mpls::Hardware::Status& status = setup.router->hardware();
    std::uint32_t random = 1;
    for (auto _ : state) {
        for (std::size_t i = 0; i < batch; ++i) {
            random = random * 1664525U + 1013904223U;
            const std::uint32_t label =
                16 + static_cast<std::uint32_t>((std::uint64_t{random} * routes) >> 32U);
            const auto route = status.route(Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label)));
            benchmark::DoNotOptimize(status.adjacency(route)->entries(false).front().intf);
        }
    }
    countPerFrame(state, 0);
    state.counters["bytes/route"] =
        static_cast<double>(status.usedBytes()) / static_cast<double>(status.routes());
}

/// A route, its via set and its via by label from an LFIB, at random.
void lfibLookup(benchmark::State& state) {
    const auto routes = static_cast<std::uint32_t>(state.range(0));
    Mpls::LfibWriter writer("bench");
    std::vector<Mpls::WeightedVia> vias(1);
    vias[0].via.labelAction = 3;
    vias[0].via.intfId = Lumo::IntfId("east");
    vias[0].via.nexthop = Lumo::IpGenAddr::fromText("10.0.2.2");
    const std::uint8_t label300[] = {0, 1, 44};
    vias[0].via.labelsIs(label300);
    for (std::uint32_t i = 0; i < routes; ++i) {
        writer.routeIs(Mpls::RouteKey::fromLabel(Lumo::MplsLabel(16 + i)), Mpls::LfibViaType::ip,
                       Mpls::LfibViaSetType::unicast, vias);
    }
    std::uint32_t random = 1;
    for (auto _ : state) {
        for (std::size_t i = 0; i < batch; ++i) {
            random = random * 1664525U + 1013904223U;
            const std::uint32_t label =
                16 + static_cast<std::uint32_t>((std::uint64_t{random} * routes) >> 32U);
            const auto route =
                writer.status()->route(Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label)));
            const auto set = writer.status()->viaSet(route.viaSetKey);
            const auto via = writer.status()->ipVia(set.members[0].viaIndex);
            benchmark::DoNotOptimize(via.intfId);
        }
    }
    countPerFrame(state, 0);
    state.counters["bytes/route"] = static_cast<double>(writer.usedBytes()) / routes;
}

} // namespace

int main(int argc, char** argv) {
    benchmark::RegisterBenchmark("floor/copy_and_swap", floorOfCopyAndSwap);
    for (const std::uint32_t routes : {1U, 1000U, 1000000U}) {
        const auto size = static_cast<std::int64_t>(routes);
        benchmark::RegisterBenchmark("lookup/hardware", hardwareLookup)->Arg(size);
        benchmark::RegisterBenchmark("lookup/lfib", lfibLookup)->Arg(size);
        for (const std::string& name : Bench::scenarioNames()) {
            const auto plugin = [name](benchmark::State& state) { pluginAlone(state, name); };
            const auto road = [name](benchmark::State& state) {
                wholeRoad(state, name, Bench::makeScenario);
            };
            benchmark::RegisterBenchmark(("plugin/" + name).c_str(), plugin)->Arg(size);
            benchmark::RegisterBenchmark(("road/" + name).c_str(), road)->Arg(size);
        }
    }
    for (const std::int64_t routes : {1, 1000, 100000}) {
        for (const std::string& name : Bench::edgeScenarioNames()) {
            const auto road = [name](benchmark::State& state) {
                wholeRoad(state, name, Bench::makeEdgeScenario);
            };
            benchmark::RegisterBenchmark(("road/" + name).c_str(), road)->Arg(routes);
        }
    }
    Bench::registerMulticastBenchmarks();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
