#pragma once

#include "Config/Config.h"
#include "Config/ConfigPorts.h"
#include "Config/ConfigReader.h"

namespace OvixAgent {

inline constexpr std::size_t maxVias = 599;
inline constexpr std::uint32_t maxWeight = 0xffffffff;

/// A label that may stand in a frame: not 3, for which the error says what to do `instead`.
Lumo::MplsLabel readLabel(const ConfigValue& value, std::string_view instead);
/// A label that frames may come in with, to be looked up: none of the special-purpose ones.
Lumo::MplsLabel readIncomingLabel(const ConfigValue& value);
std::vector<Lumo::MplsLabel> readLabelList(const ConfigValue& list, std::string_view instead);

/// The vias of `value` must have weights that add up to 1..4294967295.
void checkWeights(const ConfigValue& value, std::uint64_t total);

/// The via that `value` describes; a refusal is an error at its place.
Mpls::Via viaOrFail(const ConfigValue& value, const Tessel::Result<Mpls::Via>& via);

/// The vias of a map: a list under `vias`, or a single via under `via`.
std::vector<Mpls::WeightedVia> readVias(const ConfigMap& map, Mpls::LfibViaType type,
                                        const PortNames& ports);

/// A list of vias; an empty one is an error unless `mayBeEmpty`.
std::vector<Mpls::WeightedVia> readViaList(const ConfigValue& list, Mpls::LfibViaType type,
                                           const PortNames& ports, bool mayBeEmpty = false);

} // namespace OvixAgent
