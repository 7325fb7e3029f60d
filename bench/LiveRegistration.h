#pragma once

#include <benchmark/benchmark.h>
#include <functional>
#include <string>

namespace Bench {

/// A benchmark that sets itself up, measures once, and tells the time itself. What it throws is the
/// reason why it has no result.
inline benchmark::internal::Benchmark*
registerLive(const std::string& name, const std::function<void(benchmark::State&)>& measure) {
    const auto run = [measure](benchmark::State& state) {
        try {
            measure(state);
        } catch (const std::exception& failure) {
            state.SkipWithError(failure.what());
        }
    };
    return benchmark::RegisterBenchmark(name.c_str(), run)
        ->Iterations(1)
        ->ReportAggregatesOnly()
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

} // namespace Bench
