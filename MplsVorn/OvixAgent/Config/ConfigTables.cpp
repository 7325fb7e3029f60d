#include <fmt/format.h>
#include <unordered_map>

#include "Config/ConfigSections.h"
#include "Config/ConfigText.h"
#include "Config/ConfigVias.h"
#include "Tables/TableLayout.h"

namespace OvixAgent {

namespace {

using Lumo::MplsLabel;
using Mpls::LfibViaType;
using Mpls::TableId;
using Routing::Multicast::MvpnVrfIntfId;

/// Refuses what is defined twice.
template <typename Key>
class Defined {
  public:
    /// `noun` and `key` name it in the error.
    void add(const Key& key, const ConfigValue& value, const std::string& noun) {
        const auto [first, isNew] = lines_.emplace(key, value.line());
        if (!isNew) {
            value.fail(fmt::format("{} is already defined at line {}", noun, first->second));
        }
    }
    bool contains(const Key& key) const { return lines_.contains(key); }

  private:
    std::unordered_map<Key, std::size_t> lines_;
};

MplsLabel readRouteLabel(const ConfigMap& route, Defined<std::uint32_t>& labels) {
    const ConfigValue value = route.required("label");
    const MplsLabel label = readIncomingLabel(value);
    labels.add(label.value(), value, fmt::format("label {}", label.value()));
    return label;
}

LfibViaType readViaType(const ConfigMap& route) {
    const std::optional<ConfigValue> value = route.find("type");
    if (!value) {
        return LfibViaType::ip;
    }
    const std::string_view text = value->text("via type");
    const bool isNumber = text.find_first_not_of("-0123456789") == std::string_view::npos;
    return isNumber ? LfibViaType{value->number<std::uint8_t>("via type", 0, 255)}
                    : value->choice<LfibViaType>("via type");
}

/// A tail delivers on a VLAN; the rest of its record stays unset.
void readTail(const ConfigMap& map, Mpls::LabelRoute& route) {
    const auto tail = map.find("tail");
    if (!tail) {
        return;
    }
    if (!route.isMulticast()) {
        tail->fail("only a multicast route has a tail");
    }
    const ConfigMap keys(*tail);
    const auto vlan = keys.required("vlan").number<std::uint16_t>("vlan", 1, Mpls::Via::maxVlan);
    keys.refuseOthers();
    route.tail = Mpls::LfibMulticastIpLookupVia::toward(Lumo::VlanIntfId::vlanIdToIntfId(vlan));
    route.viaType = LfibViaType::multicastIpLookup;
}

Mpls::LfibViaSetType readSetType(const ConfigMap& map) {
    return map.booleanOr("multicast", false) ? Mpls::LfibViaSetType::multicast
                                             : Mpls::LfibViaSetType::unicast;
}

void readMulticast(const ConfigMap& map, Mpls::LabelRoute& route) {
    route.setType = readSetType(map);
    const bool isTail = route.viaType == LfibViaType::multicastIpLookup;
    if (isTail && !map.find("tail")) {
        map.failFor("tail", "missing: type multicast-ip-lookup delivers on its VLAN");
    }
    if (route.isMulticast() && !isTail && route.viaType != LfibViaType::ip) {
        map.required("type").fail("a multicast route is of type ip");
    }
    readTail(map, route);
}

Mpls::LabelRoute readLabelRoute(const ConfigValue& item, TableId table,
                                Defined<std::uint32_t>& labels, const PortNames& ports) {
    const ConfigMap map(item);
    Mpls::LabelRoute route;
    route.table = table;
    route.owner = Mpls::RouteOwner::file;
    route.label = readRouteLabel(map, labels);
    route.viaType = readViaType(map);
    readMulticast(map, route);
    if (!route.tail || map.find("vias") || map.find("via")) {
        route.vias = readVias(map, route.viaType, ports);
    }
    if (Mpls::looksUp(route.viaType) && route.vias.size() > 1) {
        map.required("vias").fail(
            fmt::format("{} vias given, a lookup in a VRF has one", route.vias.size()));
    }
    map.refuseOthers();
    return route;
}

AdjacencyConfig readAdjacency(const ConfigValue& value, const PortNames& ports,
                              Defined<std::uint64_t>& ids) {
    const ConfigMap map(value);
    AdjacencyConfig adjacency;
    const ConfigValue id = map.required("id");
    adjacency.id = id.number<std::uint64_t>("adjacency id", 0, Tessel::TableLayout::maxKey);
    ids.add(adjacency.id, id, fmt::format("adjacency {}", adjacency.id));
    adjacency.content.useBackups = map.booleanOr("use-backups", false);
    adjacency.content.setType = readSetType(map);
    adjacency.content.vias = readVias(map, LfibViaType::ip, ports);
    if (const auto backups = map.find("backups")) {
        adjacency.content.backups = readViaList(*backups, LfibViaType::ip, ports, true);
    }
    map.refuseOthers();
    return adjacency;
}

Mpls::Hardware::Route readHardwareRoute(const ConfigValue& value, Defined<std::uint32_t>& labels,
                                        const Defined<std::uint64_t>& adjacencies) {
    const ConfigMap map(value);
    const MplsLabel label = readRouteLabel(map, labels);
    const ConfigValue adjacency = map.required("adjacency");
    const auto id = adjacency.number<std::uint64_t>("adjacency id", 0, Tessel::TableLayout::maxKey);
    if (!adjacencies.contains(id)) {
        adjacency.fail(fmt::format("no adjacency has the id {}", id));
    }
    const bool unprogrammed = map.booleanOr("unprogrammed", false);
    map.refuseOthers();
    return {Mpls::RouteKey::fromLabel(label), id, unprogrammed};
}

MvpnVrfIntfId readMvpnEntry(const ConfigValue& item, const PortNames& ports,
                            Defined<std::uint32_t>& vrfs) {
    const ConfigMap map(item);
    const ConfigValue id = map.required("vrf-id");
    const auto vrf = id.number<std::uint32_t>("VRF id", 0, 0xffffffff);
    const auto vlan = map.optionalNumber<std::uint16_t>("vlan", 1, Mpls::Via::maxVlan);
    const auto interface = map.find("interface");
    const Lumo::IntfId intf = interface ? ports.readIntfId(*interface)
                              : vlan    ? Lumo::VlanIntfId::vlanIdToIntfId(*vlan)
                                        : Lumo::IntfId();
    map.refuseOthers();
    if (!vlan && !interface) {
        item.fail(fmt::format("VRF id {} lacks its vlan or interface", vrf));
    }
    if (vlan && interface) {
        interface->fail(fmt::format("{} and vlan {} cannot both be given",
                                    inQuotes(interface->text("interface")), *vlan));
    }
    vrfs.add(vrf, id, fmt::format("VRF id {}", vrf));
    return {{vrf}, intf};
}

std::vector<WeightedNextHop> readNextHops(const ConfigValue& list, const PortNames& ports) {
    std::vector<WeightedNextHop> nextHops;
    std::uint64_t totalWeight = 0;
    for (std::size_t i = 0; i < list.listSize(); ++i) {
        const ConfigValue item = list.item(i);
        const ConfigMap map(item);
        nextHops.push_back({ports.read(map.required("interface")),
                            readIpAddress(map.required("nexthop")),
                            map.numberOr<std::uint32_t>("weight", 0, maxWeight, 1)});
        map.refuseOthers();
        totalWeight += nextHops.back().weight;
    }
    if (nextHops.empty()) {
        list.fail("at least one via is needed");
    }
    checkWeights(list, totalWeight);
    return nextHops;
}

} // namespace

std::vector<Placed<Mpls::LabelRoute>> readLabelRoutes(const ConfigValue& value,
                                                      const PortNames& ports) {
    constexpr auto tableNames = Tessel::wordList<TableId>();
    const auto lfibNames = std::span(tableNames).first(Mpls::lfibs);
    const ConfigMap map(value);
    std::vector<Placed<Mpls::LabelRoute>> routes;
    for (std::size_t table = 0; table < lfibNames.size(); ++table) {
        const auto list = map.find(lfibNames[table]);
        const std::size_t size = list ? list->listSize() : 0;
        routes.reserve(routes.size() + size);
        Defined<std::uint32_t> labels;
        for (std::size_t i = 0; i < size; ++i) {
            const ConfigValue item = list->item(i);
            routes.push_back(
                {readLabelRoute(item, static_cast<TableId>(table), labels, ports), item.line()});
        }
    }
    map.refuseOthers();
    return routes;
}

HardwareConfig readHardware(const ConfigValue& value, const PortNames& ports) {
    const ConfigMap map(value);
    HardwareConfig hardware;
    Defined<std::uint64_t> ids;
    const auto adjacencies = map.find("adjacencies");
    for (std::size_t i = 0; adjacencies && i < adjacencies->listSize(); ++i) {
        const ConfigValue item = adjacencies->item(i);
        hardware.adjacencies.push_back({readAdjacency(item, ports, ids), item.line()});
    }
    const auto routes = map.find("routes");
    Defined<std::uint32_t> labels;
    for (std::size_t i = 0; routes && i < routes->listSize(); ++i) {
        const ConfigValue item = routes->item(i);
        hardware.routes.push_back({readHardwareRoute(item, labels, ids), item.line()});
    }
    map.refuseOthers();
    return hardware;
}

std::vector<Placed<MvpnVrfIntfId>> readMvpn(const ConfigValue& list, const PortNames& ports) {
    std::vector<Placed<MvpnVrfIntfId>> entries;
    Defined<std::uint32_t> vrfs;
    for (std::size_t i = 0; i < list.listSize(); ++i) {
        const ConfigValue item = list.item(i);
        entries.push_back({readMvpnEntry(item, ports, vrfs), item.line()});
    }
    return entries;
}

std::vector<FecConfig> readFecs(const ConfigValue& list, const PortNames& ports) {
    std::vector<FecConfig> fecs;
    Defined<std::uint64_t> ids;
    for (std::size_t i = 0; i < list.listSize(); ++i) {
        const ConfigValue item = list.item(i);
        const ConfigMap map(item);
        FecConfig& fec = fecs.emplace_back();
        const ConfigValue id = map.required("id");
        fec.id = id.number<std::uint64_t>("FEC id", 1, Mpls::Via::maxFec);
        ids.add(fec.id, id, fmt::format("FEC {}", fec.id));
        const ConfigValue nextHops = map.required("vias");
        fec.nextHops = readNextHops(nextHops, ports);
        map.refuseOthers();
    }
    return fecs;
}

} // namespace OvixAgent
