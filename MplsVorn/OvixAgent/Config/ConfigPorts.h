#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Config/Config.h"
#include "Config/ConfigReader.h"

namespace OvixAgent {

/// Finds ports by name.
class PortNames {
  public:
    /// The ports must outlive the names.
    explicit PortNames(const std::vector<PortConfig>& ports);

    /// The port that the value names. Throws ConfigError when there is none.
    PortIndex read(const ConfigValue& value) const;
    Lumo::IntfId readIntfId(const ConfigValue& value) const { return intfIds_[read(value)]; }
    Lumo::IntfId intfId(PortIndex port) const { return intfIds_[port]; }
    bool isSubInterface(PortIndex port) const { return (*ports_)[port].isSubInterface(); }

  private:
    const std::vector<PortConfig>* ports_;
    std::vector<std::string_view> names_;
    std::vector<Lumo::IntfId> intfIds_;
    std::unordered_map<std::string_view, PortIndex> indices_;
};

/// The VRF that a map names under `vrf`; the default VRF without that key.
std::string readVrf(const ConfigMap& map);

/// At least one port; names are unique.
std::vector<PortConfig> readPorts(const ConfigValue& list);

/// A neighbour is unique on its port.
std::vector<NeighbourConfig> readNeighbours(const ConfigValue& list, const PortNames& ports);

} // namespace OvixAgent
