#pragma once

#include "ConfigPorts.h"
#include "ConfigReader.h"
#include "ConfigTypes.h"

namespace OvixAgent {

inline constexpr std::uint32_t maxLabel = 0xfffff; ///< 20 bits (RFC 3032)

/// The vias of a map: a list under `vias`, or a single via under `via`.
ViaList readVias(const ConfigMap& map, ViaType type, const PortNames& ports);

/// A via list; none is an error unless `mayBeEmpty`.
ViaList readViaList(const ConfigValue& list, ViaType type, const PortNames& ports,
                    bool mayBeEmpty = false);

} // namespace OvixAgent
