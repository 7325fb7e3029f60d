#include "MulticastBench.h"

#include <benchmark/benchmark.h>

#include "Allocations.h"
#include "Batches.h"

namespace Bench {

namespace {

/// Copies made between two looks at the clock, the same for every number of copies per frame.
constexpr std::size_t copiesPerBatch = 512;

void pluginAlone(benchmark::State& state, const std::string& name) {
    const Scenario scenario = makeScenario(name, 1);
    const Router router(scenario.config);
    const std::size_t frames = copiesPerBatch / scenario.copies;
    countPer(state, "replica", copiesPerBatch, runPlugin(state, router, scenario, frames));
}

void wholeRoad(benchmark::State& state, const std::string& name) {
    const Scenario scenario = makeScenario(name, 1);
    Router router(scenario.config);
    const std::size_t frames = copiesPerBatch / scenario.copies;
    countPer(state, "replica", copiesPerBatch, runRoad(state, router, scenario, frames));
}

void inputStep(benchmark::State& state) {
    const Scenario scenario = makeScenario("swap", 1);
    const Router router(scenario.config);
    const auto packets = Lumo::globalPktManager();
    constexpr std::size_t frames = 256;
    std::vector<Ptr<Ovix::PacketContext>> contexts;
    for (std::size_t i = 0; i < frames; ++i) {
        contexts.push_back(Tessel::make<Ovix::PacketContext>(packets->newPkt(scenario.frames[i])));
    }
    const std::uint64_t before = allocations();
    for (auto _ : state) {
        for (const auto& context : contexts) {
            benchmark::DoNotOptimize(router.inputStep()->process(context));
        }
    }
    countPer(state, "frame", frames, allocations() - before);
}

} // namespace

void registerMulticastBenchmarks() {
    for (const std::string& name : replicationNames()) {
        const auto plugin = [name](benchmark::State& state) { pluginAlone(state, name); };
        const auto road = [name](benchmark::State& state) { wholeRoad(state, name); };
        benchmark::RegisterBenchmark(("plugin/" + name).c_str(), plugin);
        benchmark::RegisterBenchmark(("road/" + name).c_str(), road);
    }
    benchmark::RegisterBenchmark("input_step/others_frame", inputStep);
}

} // namespace Bench
