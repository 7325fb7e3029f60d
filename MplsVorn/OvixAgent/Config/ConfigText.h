#pragma once

#include <span>
#include <string>
#include <string_view>

#include "Config/Config.h"
#include "Config/ConfigReader.h"

namespace OvixAgent {

/// The text in double quotes, fit for one line of a message: control characters and quotes escaped,
/// shortened beyond 60 bytes.
std::string inQuotes(std::string_view text);

/// The candidate that `name` is most likely a misspelling of; empty when none is close.
std::string_view nearestName(std::string_view name, std::span<const std::string_view> candidates);

/// What to say after an unknown name: `; did you mean "mtu"?` when a candidate is close, else
/// `; known: mac, mtu, name` with at most 16 candidates; nothing without candidates.
std::string suggestion(std::string_view name, std::span<const std::string_view> candidates);

/// An IPv4 or IPv6 address in its usual notation.
Lumo::IpGenAddr readIpAddress(const ConfigValue& value);

/// An address with its prefix length: "10.0.1.1/24".
InterfaceAddress readInterfaceAddress(const ConfigValue& value);

/// An address prefix: "10.1.0.0/16"; bits set beyond its length are an error.
Lumo::IpGenPrefix readIpPrefix(const ConfigValue& value);

/// Six pairs of hexadecimal digits separated by colons; neither a group address nor all zero.
Lumo::EthAddr readUnicastMac(const ConfigValue& value);

} // namespace OvixAgent
