#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Config/ConfigReader.h"
#include "Config/ConfigTypes.h"

namespace OvixAgent {

inline constexpr std::size_t maxVrfNameSize = 100;

/// Finds ports by name.
class PortNames {
  public:
    /// The ports must outlive the names.
    explicit PortNames(const std::vector<PortConfig>& ports);

    /// The port that the value names; ConfigError when there is none.
    PortIndex read(const ConfigValue& value) const;

  private:
    std::vector<std::string_view> names_;
    std::unordered_map<std::string_view, PortIndex> indices_;
};

/// At least one port, each with a name of its own.
std::vector<PortConfig> readPorts(const ConfigValue& list);

/// A neighbour stands once per port.
std::vector<NeighbourConfig> readNeighbours(const ConfigValue& list, const PortNames& ports);

} // namespace OvixAgent
