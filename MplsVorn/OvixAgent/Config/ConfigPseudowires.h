#pragma once

#include "Config/ConfigPorts.h"
#include "Config/ConfigReader.h"
#include "Config/ConfigTypes.h"

namespace OvixAgent {

/// Ethernet pseudowires. A name and an attachment circuit stand once.
std::vector<PseudowireConfig> readPseudowires(const ConfigValue& list, const PortNames& ports);

} // namespace OvixAgent
