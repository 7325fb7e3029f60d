#pragma once

#include "Config/ConfigPorts.h"
#include "Config/ConfigReader.h"
#include "Config/ConfigTypes.h"

namespace OvixAgent {

/// The forwarding equivalence classes that vias refer to by id; an id stands once.
std::vector<FecConfig> readFecs(const ConfigValue& list, const PortNames& ports);

} // namespace OvixAgent
