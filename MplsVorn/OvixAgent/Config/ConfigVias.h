#pragma once

#include "Config/ConfigPorts.h"
#include "Config/ConfigReader.h"
#include "Config/ConfigTypes.h"

namespace OvixAgent {

inline constexpr std::uint32_t maxLabel = 0xfffff; ///< 20 bits (RFC 3032)

/// A list of labels that may stand in a frame; for label 3, which may not, the error says what to
/// do `instead`.
std::vector<std::uint32_t> readLabelList(const ConfigValue& list, std::string_view instead);

/// The weights of the vias that `value` gives must add up to 1..4294967295.
void checkWeights(const ConfigValue& value, std::uint64_t total);

/// The vias of a map: a list under `vias`, or a single via under `via`.
ViaList readVias(const ConfigMap& map, ViaType type, const PortNames& ports);

/// A via list; none is an error unless `mayBeEmpty`.
ViaList readViaList(const ConfigValue& list, ViaType type, const PortNames& ports,
                    bool mayBeEmpty = false);

} // namespace OvixAgent
