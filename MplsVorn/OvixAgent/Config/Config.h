#pragma once

#include <string>

#include "Config/ConfigError.h"
#include "Config/ConfigTypes.h"

namespace OvixAgent {

/// Reads a configuration file. Throws ConfigError at the first thing that is wrong.
AgentConfig loadConfig(const std::string& path);

/// The same for text at hand; `file` names it in errors.
AgentConfig parseConfig(const std::string& text, const std::string& file);

} // namespace OvixAgent
