#include "Tables/TableLoading.h"

#include <exception>

#include "Config/ConfigError.h"
#include "State/Neighbours.h"
#include "State/PackedLabels.h"

namespace OvixAgent {

namespace {

using Mpls::RouteKey;

std::vector<Mpls::WeightedRecord> toVias(const ViaList& list, const AgentConfig& config) {
    std::vector<Mpls::WeightedRecord> vias;
    vias.reserve(list.size());
    for (const ViaConfig& via : list) {
        vias.push_back({toViaRecord(via, config), via.weight});
    }
    return vias;
}

/// What is not said of the tail stays as the default record has it.
Mpls::LfibMulticastIpLookupVia toTailRecord(const TailConfig& tail) {
    const std::uint64_t intf = Lumo::VlanIntfId::vlanIdToIntfId(tail.vlan).value();
    Mpls::LfibMulticastIpLookupVia record;
    record.intfIdHigh = static_cast<std::uint32_t>(intf >> 32U);
    record.intfIdLow = static_cast<std::uint32_t>(intf);
    return record;
}

Mpls::LfibViaSetType setTypeOf(bool multicast) noexcept {
    return multicast ? Mpls::LfibViaSetType::multicast : Mpls::LfibViaSetType::unicast;
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

void loadLfibs(const AgentConfig& config, const std::string& file, Mpls::TablePublisher& tables) {
    for (std::size_t i = 0; i < lfibTableNames.size(); ++i) {
        for (const LfibRouteConfig& route : config.lfib.tables[i]) {
            at(file, route.line,
               "lfib." + std::string(lfibTableNames[i]) + ": label " + std::to_string(route.label),
               [&] { loadRoute(route, config, tables.lfib(static_cast<Mpls::TableId>(i))); });
        }
    }
}

void loadHardware(const AgentConfig& config, const std::string& file,
                  Mpls::TablePublisher& tables) {
    for (const AdjacencyConfig& adjacency : config.hardware.adjacencies) {
        at(file, adjacency.line, "hardware: adjacency " + std::to_string(adjacency.id), [&] {
            tables.hardware().adjacencyIs(
                adjacency.id,
                *Mpls::Hardware::Adjacency::create(
                    toVias(adjacency.vias, config), toVias(adjacency.backups, config),
                    adjacency.useBackups, Mpls::LfibViaType::ip, setTypeOf(adjacency.multicast)));
        });
    }
    for (const HardwareRouteConfig& route : config.hardware.routes) {
        at(file, route.line, "hardware: label " + std::to_string(route.label), [&] {
            tables.hardware().routeIs({RouteKey::fromLabel(Lumo::MplsLabel(route.label)),
                                       route.adjacency, route.unprogrammed});
        });
    }
}

void loadMvpn(const AgentConfig& config, const std::string& file, Mpls::TablePublisher& tables) {
    for (const MvpnConfig& entry : config.mvpn) {
        at(file, entry.line, "mvpn: VRF " + std::to_string(entry.vrfId), [&] {
            tables.mvpn().vrfIntfIdIs({entry.vrfId},
                                      entry.vlan ? Lumo::VlanIntfId::vlanIdToIntfId(*entry.vlan)
                                                 : Lumo::IntfId(config.ports[*entry.port].name));
        });
    }
}

} // namespace

Ovix::OvixMplsVia toViaRecord(const ViaConfig& via, const AgentConfig& config) {
    Ovix::OvixMplsVia record;
    record.labelAction = static_cast<std::uint32_t>(via.action);
    record.payloadType = static_cast<std::uint32_t>(via.payload);
    record.ttlMode = static_cast<std::uint32_t>(via.ttl);
    record.trafficClass = via.tc.value_or(Ovix::OvixMplsVia::trafficClassUnset);
    record.pushTtl = via.pushTtl.value_or(0);
    record.nexthopMtu = via.mtu.value_or(0);
    record.nexthopVlan = via.vlan.value_or(0);
    record.fecIdHigh = static_cast<std::uint32_t>(via.fec >> 32U);
    record.fecIdLow = static_cast<std::uint32_t>(via.fec);
    if (via.vrf != L3::defaultVrf) {
        record.vrfName = std::string_view(via.vrf);
    }
    if (via.port) {
        record.intfId = Lumo::IntfId(config.ports[*via.port].name);
    }
    if (via.nexthop) {
        record.nexthop = toIpGenAddr(*via.nexthop);
    }
    if (!record.labelsIs(packedLabels(via.labels))) {
        throw std::length_error("a stack of more than 33 labels");
    }
    return record;
}

void loadRoute(const LfibRouteConfig& route, const AgentConfig& config, Mpls::LfibWriter& lfib) {
    const RouteKey key = RouteKey::fromLabel(Lumo::MplsLabel(route.label));
    const auto type = static_cast<Mpls::LfibViaType>(route.type);
    const bool lookup =
        route.type == ViaTypes::ipLookup || route.type == ViaTypes::ipLookupPerPrefix;
    if (lookup && route.vias.size() == 1) {
        const ViaConfig& via = route.vias.front();
        lfib.ipLookupRouteIs(key, type, L3::VrfName(std::string_view(via.vrf)),
                             static_cast<Mpls::PayloadType>(via.payload));
    } else if (route.tail) {
        lfib.multicastIpLookupRouteIs(key, toTailRecord(*route.tail), toVias(route.vias, config));
    } else if (route.type == ViaTypes::multicastIpLookup) {
        lfib.multicastIpLookupRouteIs(key, {});
    } else {
        lfib.routeIs(key, type, setTypeOf(route.multicast), toVias(route.vias, config));
    }
}

void loadTables(const AgentConfig& config, const std::string& file, Mpls::TablePublisher& tables) {
    for (const PortConfig& port : config.ports) {
        tables.interfaces().intfId(port.name);
    }
    loadLfibs(config, file, tables);
    loadHardware(config, file, tables);
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
