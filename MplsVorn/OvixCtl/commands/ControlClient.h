#pragma once

#include <string>
#include <string_view>

#include "Tessel/Result.h"

namespace OvixCtl {

/// Sends one command to the agent that answers at a socket, and returns its answer, a line of JSON.
/// Refuses when no agent is there and when no answer comes within ten seconds, naming the path.
Tessel::Result<std::string> askAgent(const std::string& path, std::string_view command);

} // namespace OvixCtl
