#include "Config/ConfigLfib.h"

#include <fmt/format.h>

#include "Config/ConfigVias.h"

namespace OvixAgent {

namespace {

constexpr ConfigChoice viaTypes[]{
    {"ip", ViaTypes::ip},
    {"ip-lookup", ViaTypes::ipLookup},
    {"external-fec", ViaTypes::externalFec},
    {"ip-lookup-per-prefix", ViaTypes::ipLookupPerPrefix},
    {"multicast-ip-lookup", ViaTypes::multicastIpLookup},
};

ViaType readViaType(const ConfigMap& route) {
    const std::optional<ConfigValue> value = route.find("type");
    if (!value) {
        return ViaTypes::ip;
    }
    const std::string_view text = value->text("via type");
    const bool isNumber = text.find_first_not_of("-0123456789") == std::string_view::npos;
    return isNumber ? value->number<ViaType>("via type", 0, 255)
                    : value->choice("via type", viaTypes);
}

std::optional<TailConfig> readTail(const ConfigMap& route, bool isMulticast) {
    const auto tail = route.find("tail");
    if (!tail) {
        return std::nullopt;
    }
    if (!isMulticast) {
        tail->fail("only a multicast route has a tail");
    }
    const ConfigMap map(*tail, {"vlan"});
    return TailConfig{map.required("vlan").number<std::uint16_t>("vlan", 1, 4094)};
}

void readMulticast(const ConfigMap& map, LfibRouteConfig& route) {
    route.multicast = map.booleanOr("multicast", false);
    if (route.multicast && route.type != ViaTypes::ip) {
        map.required("type").fail("a multicast route is of type ip");
    }
    route.tail = readTail(map, route.multicast);
}

std::vector<LfibRouteConfig> readRoutes(const ConfigValue& list, const PortNames& ports) {
    std::vector<LfibRouteConfig> routes;
    routes.reserve(list.listSize());
    RouteLabels labels;
    for (std::size_t i = 0; i < list.listSize(); ++i) {
        const ConfigValue item = list.item(i);
        const ConfigMap map(item, {"label", "type", "vias", "via", "multicast", "tail"});
        LfibRouteConfig& route = routes.emplace_back();
        route.line = item.line();
        route.label = labels.read(map);
        route.type = readViaType(map);
        readMulticast(map, route);
        if (!route.tail || map.find("vias") || map.find("via")) {
            route.vias = readVias(map, route.type, ports);
        }
    }
    return routes;
}

} // namespace

std::uint32_t RouteLabels::read(const ConfigMap& route) {
    const ConfigValue value = route.required("label");
    const auto label = value.number<std::uint32_t>("label", 0, maxLabel);
    const auto [first, isNew] = lines_.emplace(label, value.line());
    if (!isNew) {
        value.fail(fmt::format("label {} is already defined at line {}", label, first->second));
    }
    return label;
}

LfibConfig readLfib(const ConfigValue& value, const PortNames& ports) {
    const ConfigMap map(value, lfibTableNames);
    LfibConfig lfib;
    for (std::size_t i = 0; i < lfibTableNames.size(); ++i) {
        if (const auto list = map.find(lfibTableNames[i])) {
            lfib.tables[i] = readRoutes(*list, ports);
        }
    }
    return lfib;
}

} // namespace OvixAgent
