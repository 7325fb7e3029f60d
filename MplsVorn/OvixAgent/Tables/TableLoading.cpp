#include "Tables/TableLoading.h"

#include <exception>

#include "Config/ConfigError.h"
#include "Published/TransitRoutes.h"

namespace OvixAgent {

namespace {

using Mpls::RouteKey;

std::string labelText(Lumo::MplsLabel label) {
    return "label " + label.prettyString();
}

/// Calls `load`; what the tables refuse is an error of the configuration, at its place.
template <typename Load>
void at(const std::string& file, std::size_t line, const std::string& what, Load&& load) {
    try {
        load();
    } catch (const std::exception& refused) {
        throw ConfigError(file + ":" + std::to_string(line) + ": " + what + ": " + refused.what());
    }
}

void loadLabelRoutes(const AgentConfig& config, const std::string& file,
                     Mpls::TablePublisher& tables) {
    for (const auto& [route, line] : config.labelRoutes) {
        const auto done = route.table == Mpls::TableId::transitLfib
                              ? Mpls::transitRouteIs(tables, route)
                              : tables.lfib(route.table).routeIs(route);
        if (!done) {
            throw ConfigError(file + ":" + std::to_string(line) + ": lfib." +
                              std::string(Tessel::wordOf(route.table)) + ": " +
                              labelText(route.label) + ": " + done.refused().what);
        }
    }
}

void loadHardware(const AgentConfig& config, const std::string& file,
                  Mpls::TablePublisher& tables) {
    for (const auto& placed : config.hardware.adjacencies) {
        const AdjacencyConfig& adjacency = placed.value;
        at(file, placed.line, "hardware: adjacency " + std::to_string(adjacency.id), [&] {
            tables.hardware().adjacencyIs(adjacency.id,
                                          *Mpls::Hardware::Adjacency::create(adjacency.content));
        });
    }
    for (const auto& placed : config.hardware.routes) {
        at(file, placed.line, "hardware: " + labelText(placed.value.routeKey.topLabel()),
           [&] { tables.hardware().routeIs(placed.value); });
    }
}

void loadMvpn(const AgentConfig& config, const std::string& file, Mpls::TablePublisher& tables) {
    for (const auto& placed : config.mvpn) {
        at(file, placed.line, "mvpn: VRF " + std::to_string(placed.value.vrfId.value),
           [&] { tables.mvpn().vrfIntfIdIs(placed.value.vrfId, placed.value.intfId); });
    }
}

} // namespace

void loadTables(const AgentConfig& config, const std::string& file, Mpls::TablePublisher& tables) {
    for (const PortConfig& port : config.ports) {
        tables.interfaces().intfId(port.name);
    }
    loadHardware(config, file, tables); // its routes and ids come before those of transit routes
    loadLabelRoutes(config, file, tables);
    loadMvpn(config, file, tables);
}

void clearTables(const Mpls::PublishedTables& published, Mpls::TablePublisher& tables) {
    for (std::size_t i = 0; i < Mpls::lfibs; ++i) {
        const auto table = static_cast<Mpls::TableId>(i);
        published.lfib(table)->forEachRoute(
            [&](const Mpls::LfibRoute& route) { tables.lfib(table).routeDel(route.routeKey); });
    }
    published.hardware()->forEachLabel([&](std::uint32_t label) {
        tables.hardware().routeDel(RouteKey::fromLabel(Lumo::MplsLabel(label)));
    });
    published.hardware()->forEachAdjacency(
        [&](std::uint32_t key) { tables.hardware().adjacencyDel(key); });
    std::vector<Vrf::VrfIdMap::VrfId> vrfs;
    published.mvpn()->forEachEntry([&](const auto& entry) { vrfs.push_back(entry.vrfId); });
    for (const auto vrf : vrfs) {
        tables.mvpn().vrfIntfIdDel(vrf);
    }
}

} // namespace OvixAgent
