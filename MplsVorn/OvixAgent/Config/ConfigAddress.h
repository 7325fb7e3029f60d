#pragma once

#include "Config/ConfigReader.h"
#include "Config/ConfigTypes.h"

namespace OvixAgent {

/// An IPv4 or IPv6 address in its usual notation.
IpAddress readIpAddress(const ConfigValue& value);

/// An address with its prefix length: "10.0.1.1/24".
IpInterfaceAddress readIpInterfaceAddress(const ConfigValue& value);

/// An address prefix: "10.1.0.0/16"; bits behind its length are an error.
IpPrefix readIpPrefix(const ConfigValue& value);

/// The prefix of that length that the address lies in.
IpPrefix prefixOf(const IpAddress& address, std::uint8_t length);

/// Six pairs of hexadecimal digits separated by colons; neither a group address nor all zero.
MacAddress readUnicastMac(const ConfigValue& value);

} // namespace OvixAgent
