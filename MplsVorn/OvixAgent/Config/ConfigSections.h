#pragma once

#include "Config/Config.h"
#include "Config/ConfigPorts.h"
#include "Config/ConfigReader.h"

namespace OvixAgent {

// The sections of a configuration file beside its ports. All throw ConfigError at the first place
// that is wrong.

/// `lfib`: the five label tables, each a list of routes.
std::vector<Placed<Mpls::LabelRoute>> readLabelRoutes(const ConfigValue& value,
                                                      const PortNames& ports);

/// `hardware`: what the platform has programmed.
HardwareConfig readHardware(const ConfigValue& value, const PortNames& ports);

/// `mvpn`: the provider-multicast interfaces of multicast VPNs.
std::vector<Placed<Routing::Multicast::MvpnVrfIntfId>> readMvpn(const ConfigValue& list,
                                                                const PortNames& ports);

/// `fecs`: the forwarding equivalence classes that vias name by id.
std::vector<FecConfig> readFecs(const ConfigValue& list, const PortNames& ports);

/// `pseudowires`: names are unique, and a port is the attachment circuit of at most one.
std::vector<Placed<PseudowireConfig>> readPseudowires(const ConfigValue& list,
                                                      const PortNames& ports);

/// `answers`: the rates of what the router answers.
AnswerLimits readAnswers(const ConfigValue& value);

/// `routes`: the IP routes of all VRFs. A next hop without an interface is reached at the port of
/// the route's VRF on whose subnet it is. The ports of `config` must have been read.
std::vector<Placed<L3::Route>> readRoutes(const ConfigValue& list, const AgentConfig& config,
                                          const PortNames& portNames);

/// Whether one of the routes belongs to the VRF.
bool hasRoutes(const AgentConfig& config, std::string_view vrf);

} // namespace OvixAgent
