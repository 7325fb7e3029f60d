#pragma once

#include "ConfigPorts.h"
#include "ConfigReader.h"
#include "ConfigTypes.h"

namespace OvixAgent {

/// What the hardware reports: adjacencies, and routes that point to them.
HardwareConfig readHardware(const ConfigValue& value, const PortNames& ports);

} // namespace OvixAgent
