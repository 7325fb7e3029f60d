#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ConfigTypes.h"

namespace Bench {

/// One kind of traffic: the routes it meets and the frames it is made of.
struct Scenario {
    std::string name;
    OvixAgent::AgentConfig config;
    std::vector<std::vector<std::uint8_t>> frames; ///< of 64 bytes or as long as their stack needs
};

/// The kinds of traffic that are measured.
std::vector<std::string> scenarioNames();

/// Throws std::out_of_range for an unknown name. `routes` labels have a route, each with an
/// adjacency of its own; the frames' labels are spread over all of them.
Scenario makeScenario(const std::string& name, std::uint32_t routes);

} // namespace Bench
