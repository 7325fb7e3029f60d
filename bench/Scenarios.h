#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Config/Config.h"

namespace Bench {

/// One kind of traffic: the routes it meets and the frames it is made of.
struct Scenario {
    std::string name;
    OvixAgent::AgentConfig config;
    std::uint32_t copies = 1;                      ///< that leave for each frame that comes in
    std::vector<std::vector<std::uint8_t>> frames; ///< of 64 bytes or as long as their stack needs
    OvixAgent::PortIndex port = 0;                 ///< that the frames come in at
};

/// How many frames a scenario has unless told.
inline constexpr std::size_t scenarioFrames = 8192;

/// The kinds of traffic that are measured.
std::vector<std::string> scenarioNames();
/// Likewise, those whose frames are replicated.
std::vector<std::string> replicationNames();

/// Throws std::out_of_range for an unknown name; knows "ucmp4" and "flood", too: a choice of four,
/// and as many unknown labels as there are known ones. `routes` labels have a route, each with an
/// adjacency of its own (of several vias: up to 16384 of them); the frames' labels are spread over
/// all of them.
Scenario makeScenario(const std::string& name, std::uint32_t routes,
                      std::size_t frames = scenarioFrames);

} // namespace Bench
