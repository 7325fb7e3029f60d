#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "Tessel/Result.h"

namespace OvixAgent {

/// Sends a request to the agent that answers at a socket, and returns its answer; both are lines of
/// JSON without their ends.
/// Refuses when no agent is there and when it is silent for longer than `longest`, naming the path.
Tessel::Result<std::string> askAgent(const std::string& path, std::string_view request,
                                     std::chrono::seconds longest = std::chrono::seconds(10));

} // namespace OvixAgent
