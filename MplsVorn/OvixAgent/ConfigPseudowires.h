#pragma once

#include "ConfigPorts.h"
#include "ConfigReader.h"
#include "ConfigTypes.h"

namespace OvixAgent {

/// Ethernet pseudowires. A name and an attachment circuit stand once.
std::vector<PseudowireConfig> readPseudowires(const ConfigValue& list, const PortNames& ports);

} // namespace OvixAgent
