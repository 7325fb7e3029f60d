#pragma once

#include "OvixAgent/ConfigPorts.h"
#include "OvixAgent/ConfigReader.h"
#include "OvixAgent/ConfigTypes.h"

namespace OvixAgent {

/// What the hardware reports: adjacencies, and routes that point to them.
HardwareConfig readHardware(const ConfigValue& value, const PortNames& ports);

} // namespace OvixAgent
