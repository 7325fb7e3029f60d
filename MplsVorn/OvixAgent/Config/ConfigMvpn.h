#pragma once

#include <vector>

#include "Config/ConfigPorts.h"
#include "Config/ConfigReader.h"
#include "Config/ConfigTypes.h"

namespace OvixAgent {

/// The provider-multicast interfaces of the multicast VPNs; a VRF stands once.
std::vector<MvpnConfig> readMvpn(const ConfigValue& list, const PortNames& ports);

} // namespace OvixAgent
