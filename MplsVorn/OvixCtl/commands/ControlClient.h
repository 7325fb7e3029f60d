#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace OvixCtl {

/// Asks the agent that answers at a socket for one command, and returns its answer. Throws
/// std::runtime_error when nobody is there, when no answer comes within ten seconds, or with the
/// agent's own error.
nlohmann::ordered_json askAgent(const std::string& path, const std::string& command);

} // namespace OvixCtl
