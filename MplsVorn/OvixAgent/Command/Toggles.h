#pragma once

#include <string>

#include "Config/ConfigTypes.h"

namespace OvixAgent {

/// Sets the source of the toggle service: the configuration and, for toggles that it does not set,
/// the toggle files beside the configuration file, JSON objects of toggle name to boolean. The
/// service then throws ConfigError for a toggle file that cannot be read or is invalid.
void serveToggles(const AgentConfig& config, const std::string& configFile);

} // namespace OvixAgent
