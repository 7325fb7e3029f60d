#pragma once

#include "Config/ConfigPorts.h"
#include "Config/ConfigReader.h"
#include "Config/ConfigTypes.h"

namespace OvixAgent {

/// What the hardware reports: adjacencies, and routes that point to them.
HardwareConfig readHardware(const ConfigValue& value, const PortNames& ports);

} // namespace OvixAgent
