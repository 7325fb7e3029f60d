#pragma once

#include <vector>

#include "Config/ConfigPorts.h"
#include "Config/ConfigReader.h"
#include "Config/ConfigTypes.h"

namespace OvixAgent {

/// The IP routes of all VRFs. A next hop without an interface is reached at the port of the route's
/// VRF on whose subnet it is. The ports of `config` must have been read.
std::vector<IpRouteConfig> readRoutes(const ConfigValue& list, const AgentConfig& config,
                                      const PortNames& portNames);

/// Whether one of the routes belongs to the VRF.
bool hasRoutes(const AgentConfig& config, const std::string& vrf);

} // namespace OvixAgent
