#include "Config/ConfigHardware.h"

#include <fmt/format.h>
#include <unordered_map>

#include "Config/ConfigLfib.h"
#include "Config/ConfigVias.h"
#include "Tables/TableLayout.h"

namespace OvixAgent {

namespace {

constexpr std::uint64_t maxId = Tessel::TableLayout::maxKey;

/// Adjacency id -> line.
using AdjacencyLines = std::unordered_map<std::uint64_t, std::size_t>;

AdjacencyConfig readAdjacency(const ConfigValue& value, const PortNames& ports,
                              AdjacencyLines& lines) {
    const ConfigMap map(value, {"id", "use-backups", "multicast", "vias", "via", "backups"});
    AdjacencyConfig adjacency;
    adjacency.line = value.line();
    const ConfigValue id = map.required("id");
    adjacency.id = id.number<std::uint64_t>("adjacency id", 0, maxId);
    const auto [first, isNew] = lines.emplace(adjacency.id, id.line());
    if (!isNew) {
        id.fail(
            fmt::format("adjacency {} is already defined at line {}", adjacency.id, first->second));
    }
    adjacency.useBackups = map.booleanOr("use-backups", false);
    adjacency.multicast = map.booleanOr("multicast", false);
    adjacency.vias = readVias(map, ViaTypes::ip, ports);
    if (const auto backups = map.find("backups")) {
        adjacency.backups = readViaList(*backups, ViaTypes::ip, ports, true);
    }
    return adjacency;
}

HardwareRouteConfig readRoute(const ConfigValue& value, RouteLabels& labels,
                              const AdjacencyLines& adjacencies) {
    const ConfigMap map(value, {"label", "adjacency", "unprogrammed"});
    HardwareRouteConfig route;
    route.line = value.line();
    route.label = labels.read(map);
    const ConfigValue adjacency = map.required("adjacency");
    route.adjacency = adjacency.number<std::uint64_t>("adjacency id", 0, maxId);
    if (!adjacencies.contains(route.adjacency)) {
        adjacency.fail(fmt::format("no adjacency has the id {}", route.adjacency));
    }
    route.unprogrammed = map.booleanOr("unprogrammed", false);
    return route;
}

} // namespace

HardwareConfig readHardware(const ConfigValue& value, const PortNames& ports) {
    const ConfigMap map(value, {"adjacencies", "routes"});
    HardwareConfig hardware;
    AdjacencyLines adjacencyLines;
    if (const auto list = map.find("adjacencies")) {
        for (std::size_t i = 0; i < list->listSize(); ++i) {
            hardware.adjacencies.push_back(readAdjacency(list->item(i), ports, adjacencyLines));
        }
    }
    if (const auto list = map.find("routes")) {
        RouteLabels labels;
        for (std::size_t i = 0; i < list->listSize(); ++i) {
            hardware.routes.push_back(readRoute(list->item(i), labels, adjacencyLines));
        }
    }
    return hardware;
}

} // namespace OvixAgent
