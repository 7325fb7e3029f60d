#pragma once

#include "OvixAgent/ConfigPorts.h"
#include "OvixAgent/ConfigReader.h"
#include "OvixAgent/ConfigTypes.h"

#include <unordered_map>

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
