// Time and heap allocations per frame: for the plugin alone and for the agent's whole road.

#include <benchmark/benchmark.h>
#include <memory>

#include "Batches.h"
#include "EdgeScenarios.h"
#include "MulticastBench.h"
#include "TableBench.h"

namespace {

using Bench::Router;
using Bench::Scenario;

constexpr std::size_t batch = 256;

using MakeScenario = Scenario (*)(const std::string& name, std::uint32_t routes,
                                  std::size_t frames);

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
        setup.scenario = make(name, routes, Bench::scenarioFrames);
        setup.router = std::make_unique<Router>(setup.scenario.config);
        setup.scenario.config = {};
        key = wanted;
    }
    return setup;
}

void countPerFrame(benchmark::State& state, std::uint64_t allocations) {
    Bench::countPer(state, "frame", batch, allocations);
}

void pluginAlone(benchmark::State& state, const std::string& name) {
    const Setup& setup = setupFor(name, static_cast<std::uint32_t>(state.range(0)));
    countPerFrame(state, Bench::runPlugin(state, *setup.router, setup.scenario, batch));
}

void wholeRoad(benchmark::State& state, const std::string& name, MakeScenario make) {
    const Setup& setup = setupFor(name, static_cast<std::uint32_t>(state.range(0)), make);
    countPerFrame(state, Bench::runRoad(state, *setup.router, setup.scenario, batch));
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

} // namespace

int main(int argc, char** argv) {
    benchmark::RegisterBenchmark("floor/copy_and_swap", floorOfCopyAndSwap);
    for (const std::uint32_t routes : {1U, 1000U, 1000000U}) {
        const auto size = static_cast<std::int64_t>(routes);
        Bench::registerLookupBenchmarks(size);
        Bench::registerFibBenchmarks(size);
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
    Bench::registerSharedTableBenchmarks();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
