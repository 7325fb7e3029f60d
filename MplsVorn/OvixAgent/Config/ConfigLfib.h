#pragma once

#include <unordered_map>

#include "Config/ConfigPorts.h"
#include "Config/ConfigReader.h"
#include "Config/ConfigTypes.h"

namespace OvixAgent {

/// Reads the labels of one table's routes and refuses a label that stands there already.
class RouteLabels {
  public:
    std::uint32_t read(const ConfigMap& route);

  private:
    std::unordered_map<std::uint32_t, std::size_t> lines_;
};

/// The five label forwarding tables, each a list of routes.
LfibConfig readLfib(const ConfigValue& value, const PortNames& ports);

} // namespace OvixAgent
