#pragma once

#include "Config/ConfigReader.h"
#include "Config/ConfigTypes.h"

namespace OvixAgent {

/// An IPv4 or IPv6 address in its usual notation.
Lumo::IpGenAddr readIpAddress(const ConfigValue& value);

/// An address with its prefix length: "10.0.1.1/24".
InterfaceAddress readInterfaceAddress(const ConfigValue& value);

/// An address prefix: "10.1.0.0/16"; bits set beyond its length are an error.
Lumo::IpGenPrefix readIpPrefix(const ConfigValue& value);

/// Six pairs of hexadecimal digits separated by colons; neither a group address nor all zero.
Lumo::EthAddr readUnicastMac(const ConfigValue& value);

} // namespace OvixAgent
