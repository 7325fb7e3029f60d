#include "MulticastBench.h"

#include <benchmark/benchmark.h>

#include "Allocations.h"
#include "Router.h"
#include "Scenarios.h"

namespace Bench {

namespace {

/// Copies made between two looks at the clock, the same for every number of copies per frame.
constexpr std::size_t copiesPerBatch = 512;

void countPer(benchmark::State& state, const char* unit, std::size_t perIteration,
              std::uint64_t allocations) {
    const auto total = static_cast<double>(state.iterations()) * static_cast<double>(perIteration);
    state.counters[std::string("allocs/") + unit] = static_cast<double>(allocations) / total;
    state.counters[std::string("ns/") + unit] =
        benchmark::Counter(total, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

/// From processPacket to the filled output.
void pluginAlone(benchmark::State& state, const std::string& name) {
    const Scenario scenario = makeScenario(name, 1);
    const Router router(scenario.config);
    const auto handler = router.mplsHandler();
    const auto counters = Tessel::make<Ovix::OvixNamedCounters>();
    const auto packets = Lumo::globalPktManager();
    const std::size_t frames = copiesPerBatch / scenario.copies;
    std::vector<Ptr<Ovix::RoutingContext>> contexts(frames);
    std::vector<Ptr<Ovix::PacketHeader>> headers(frames);
    std::vector<Ptr<Ovix::RoutingOutput>> outputs(frames);
    std::size_t next = 0;
    std::uint64_t taken = 0;
    bool warm = false;
    for (auto _ : state) {
        state.PauseTiming();
        for (std::size_t i = 0; i < frames; ++i, ++next) {
            const auto& frame = scenario.frames[next % scenario.frames.size()];
            contexts[i] = Tessel::make<Ovix::RoutingContext>(
                next, Tessel::make<Ovix::PacketContext>(packets->newPkt(frame)), counters);
            headers[i] = contexts[i]->packetContext()->parsedPkt().header(1);
            outputs[i] = Tessel::make<Ovix::RoutingOutput>();
        }
        const std::uint64_t before = Bench::allocations();
        state.ResumeTiming();
        for (std::size_t i = 0; i < frames; ++i) {
            handler->processPacket(outputs[i], contexts[i], headers[i], nullptr);
        }
        state.PauseTiming();
        taken += warm ? Bench::allocations() - before : 0;
        warm = true;
        state.ResumeTiming();
    }
    countPer(state, "replica", copiesPerBatch, taken);
}

/// From the received bytes to the transmitted copies.
void wholeRoad(benchmark::State& state, const std::string& name) {
    const Scenario scenario = makeScenario(name, 1);
    Router router(scenario.config);
    const auto receive = [&](std::size_t number) {
        const auto& frame = scenario.frames[number % scenario.frames.size()];
        router.forwarder().receive({0, {}, frame, static_cast<std::uint32_t>(frame.size())});
    };
    const std::size_t frames = copiesPerBatch / scenario.copies;
    receive(0);
    std::size_t next = 0;
    const std::uint64_t before = Bench::allocations();
    for (auto _ : state) {
        for (std::size_t i = 0; i < frames; ++i) {
            receive(next++);
        }
    }
    countPer(state, "replica", copiesPerBatch, Bench::allocations() - before);
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
    const std::uint64_t before = Bench::allocations();
    for (auto _ : state) {
        for (const auto& context : contexts) {
            benchmark::DoNotOptimize(router.inputStep()->process(context));
        }
    }
    countPer(state, "frame", frames, Bench::allocations() - before);
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
