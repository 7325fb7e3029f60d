#include "AgentState.h"

#include <exception>

#include "ConfigError.h"
#include "Interface/EthIntfStatusDir.h"
#include "Mpls/Hardware/Capability.h"
#include "Mpls/Hardware/Status.h"
#include "Mpls/RoutingInfo.h"
#include "Neighbours.h"
#include "PackedLabels.h"
#include "Routing/Multicast/MvpnIntfStatus.h"
#include "Tessel/ShmEntityManager.h"

namespace OvixAgent {

namespace {

using Mpls::RouteKey;

/// Where each table is published, in the order of LfibTable.
constexpr std::array<std::string_view, lfibTableNames.size()> lfibPaths{
    "mpls/decapLfib", "mpls/evpnEthernetSegmentFilterLfib", "mpls/evpnEtreeLeafLabelLfib",
    "mpls/pseudowireLfib", "mpls/transitLfib"};

std::vector<Mpls::WeightedVia> toVias(const ViaList& list, const AgentConfig& config) {
    std::vector<Mpls::WeightedVia> vias;
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

void publishRoute(Mpls::LfibWriter& lfib, const LfibRouteConfig& route, const AgentConfig& config) {
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

} // namespace

Ovix::OvixMplsVia toViaRecord(const ViaConfig& via, const AgentConfig& config) {
    Ovix::OvixMplsVia record;
    record.labelAction = static_cast<std::uint32_t>(via.action);
    record.payloadType = static_cast<std::uint32_t>(via.payload);
    record.ttlMode = static_cast<std::uint32_t>(via.ttl);
    record.trafficClass = via.tc.value_or(Ovix::OvixMplsVia::trafficClassUntold);
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
        throw std::length_error("more than 65536 different label stacks too deep for a via");
    }
    return record;
}

AgentState::AgentState(const AgentConfig& config, const std::string& file,
                       const std::string& systemName)
    : entities_(Tessel::make<Tessel::EntityManager>(systemName, true)) {
    publishState(config);
    publishLfibs(config, file);
    publishMvpn(config);
    auto manager = Tessel::make<Ovix::PluginManager>();
    manager->shmEntitySourceIs(
        Tessel::make<Ovix::ShmEntitySource>(Tessel::ShmEntityManager::ofSystem(systemName, true)));
    manager->packetHashers()->hasherIs(Ovix::PktHdrType::mpls, Tessel::make<Ovix::MplsHasher>());
    manager->routingCapabilities()->routingSupportedIs(true);
    context_ = Tessel::make<Ovix::PluginContext>(entities_, manager);
}

// The tables are taken back, since their memory goes with this object.
AgentState::~AgentState() {
    const auto tables = Tessel::ShmEntityManager::ofSystem(entities_->systemName(), true);
    for (const std::string_view path : lfibPaths) {
        tables->tableDel(path);
    }
}

void AgentState::publishState(const AgentConfig& config) {
    auto routingInfo = Tessel::make<Mpls::RoutingInfo>();
    routingInfo->mplsRoutingEnabledIs(config.mplsRouting);
    entities_->entityIs("routing/mpls/routingInfo/status", routingInfo);
    entities_->entityIs("routing/hardware/mpls/capability",
                        Tessel::make<Mpls::Hardware::Capability>());

    auto hardware = Tessel::make<Mpls::Hardware::Status>();
    hardware->reserve(config.hardware.routes.size());
    for (const AdjacencyConfig& adjacency : config.hardware.adjacencies) {
        hardware->adjacencyIs(adjacency.id,
                              Mpls::Hardware::Adjacency::create(
                                  toVias(adjacency.vias, config), toVias(adjacency.backups, config),
                                  adjacency.useBackups, Mpls::LfibViaType::ip,
                                  setTypeOf(adjacency.multicast)));
    }
    for (const HardwareRouteConfig& route : config.hardware.routes) {
        hardware->routeIs({RouteKey::fromLabel(Lumo::MplsLabel(route.label)), route.adjacency,
                           route.unprogrammed});
    }
    entities_->entityIs("routing/hardware/mpls/status", hardware);

    auto interfaces = Tessel::make<Interface::EthIntfStatusDir>();
    for (const PortConfig& port : config.ports) {
        interfaces->intfStatusIs(Lumo::IntfId(port.name), port.isUp);
    }
    entities_->entityIs("interface/status/eth/intf", interfaces);
}

void AgentState::publishLfibs(const AgentConfig& config, const std::string& file) {
    const auto tables = Tessel::ShmEntityManager::ofSystem(entities_->systemName(), true);
    for (std::size_t i = 0; i < lfibPaths.size(); ++i) {
        lfibs_[i] = std::make_unique<Mpls::LfibWriter>(std::string(lfibPaths[i]));
        for (const LfibRouteConfig& route : config.lfib.tables[i]) {
            try {
                publishRoute(*lfibs_[i], route, config);
            } catch (const std::exception& refused) {
                throw ConfigError(file + ":" + std::to_string(route.line) + ": lfib." +
                                  std::string(lfibTableNames[i]) + ": label " +
                                  std::to_string(route.label) + ": " + refused.what());
            }
        }
        tables->tableIs(lfibPaths[i], lfibs_[i]->status());
    }
}

void AgentState::publishMvpn(const AgentConfig& config) {
    auto status = Tessel::make<Routing::Multicast::MvpnIntfStatus>();
    for (const MvpnConfig& entry : config.mvpn) {
        status->vrfIntfIdIs({entry.vrfId}, entry.vlan
                                               ? Lumo::VlanIntfId::vlanIdToIntfId(*entry.vlan)
                                               : Lumo::IntfId(config.ports[*entry.port].name));
    }
    Tessel::ShmEntityManager::ofSystem(entities_->systemName(), true)
        ->tableIs(Routing::Multicast::MvpnIntfStatus::mountPath, status);
}

} // namespace OvixAgent
