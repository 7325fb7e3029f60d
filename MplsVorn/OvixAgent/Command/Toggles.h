#pragma once

#include <string>

#include "Config/ConfigTypes.h"

namespace OvixAgent {

/// Makes the toggle service answer from the configuration and, for what that leaves open, from the
/// toggle files that lie beside the configuration file: JSON objects of toggle name to boolean. A
/// toggle file that is there but cannot be read or understood throws ConfigError when it is asked
/// for a toggle.
void serveToggles(const AgentConfig& config, const std::string& configFile);

} // namespace OvixAgent
