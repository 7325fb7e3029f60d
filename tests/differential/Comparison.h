#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Recording.h"
#include "Router.h"
#include "Script.h"

namespace Differential {

/// How many frames of a kind there were and, of those that came alone while the fast path was on,
/// how many it took; the same of those that left by a port.
struct KindCounts {
    std::uint64_t frames = 0;
    std::uint64_t alone = 0;
    std::uint64_t aloneFast = 0;
    std::uint64_t left = 0;
    std::uint64_t leftFast = 0;
};

/// What went by which road.
struct Coverage {
    std::array<KindCounts, trafficKinds> kinds{};
    std::uint64_t fast = 0;
    std::uint64_t slow = 0;
    std::map<std::string, std::uint64_t> fates; ///< with their reasons
};

/// Runs the script by both roads, one after the other. Returns the first step after which what
/// they did is not the same; unset when there is none. Adds to `coverage` unless null.
std::optional<std::size_t> firstDifference(const Script& script, Fault fault,
                                           Coverage* coverage = nullptr);

/// What the step does by a road, in words.
std::vector<std::string> whatHappens(const Script& script, Road road, Fault fault,
                                     std::size_t step);

} // namespace Differential
