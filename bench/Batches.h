#pragma once

#include <benchmark/benchmark.h>
#include <cstdint>

#include "Router.h"
#include "Scenarios.h"

namespace Bench {

/// Reports time and allocations per frame, or whatever else the `unit` is of which each iteration
/// handles `perIteration`.
void countPer(benchmark::State& state, const char* unit, std::size_t perIteration,
              std::uint64_t allocations);

/// Runs the benchmark on batches of `frames`: from processPacket to the filled output. The frames
/// are taken in and parsed beforehand. Reports how many next hops each got, and returns the
/// allocations, the first batch's not counted.
std::uint64_t runPlugin(benchmark::State& state, const Router& router, const Scenario& scenario,
                        std::size_t frames);

/// Runs the benchmark on batches of `frames`: from the received bytes to the transmitted ones, and
/// reports how many frames left for each. Returns the allocations; every frame of the scenario has
/// been sent once before, since counters of labels come into being with their first packet.
std::uint64_t runRoad(benchmark::State& state, Router& router, const Scenario& scenario,
                      std::size_t frames);

} // namespace Bench
