#include "Config/ConfigRoutes.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <map>
#include <tuple>

#include "Config/ConfigAddress.h"
#include "Config/ConfigText.h"
#include "Config/ConfigVias.h"

namespace OvixAgent {

namespace {

constexpr std::size_t maxVias = 599;
constexpr std::size_t maxLabels = 65535 / 4; ///< more do not fit the largest MTU
constexpr std::uint32_t anyWeight = std::numeric_limits<std::uint32_t>::max();
constexpr ConfigChoice ttlModes[]{{"uniform", 0}, {"pipe", 1}};

/// What the parts of a route are read against.
struct RouteContext {
    const AgentConfig& config;
    const PortNames& portNames;
    std::string vrf = "default";
    IpPrefix prefix{};
};

bool isOnSubnet(const IpAddress& address, const IpInterfaceAddress& own) {
    return prefixOf(address, own.prefixLength) == prefixOf(own.address, own.prefixLength);
}

/// The port of the VRF on whose subnet an address is, the longest when there are several.
std::optional<PortIndex> portOnSubnet(const RouteContext& context, const IpAddress& address) {
    std::optional<PortIndex> found;
    int longest = -1;
    for (PortIndex i = 0; i < context.config.ports.size(); ++i) {
        const PortConfig& port = context.config.ports[i];
        for (const IpInterfaceAddress& own : port.addresses) {
            if (port.vrf == context.vrf && own.prefixLength > longest && isOnSubnet(address, own)) {
                found = i;
                longest = own.prefixLength;
            }
        }
    }
    return found;
}

IpAddress readNexthop(const ConfigValue& value, const RouteContext& context) {
    const IpAddress nexthop = readIpAddress(value);
    if (nexthop.family != context.prefix.address.family) {
        value.fail(fmt::format("{} and the prefix are not of one address family",
                               inQuotes(value.text("nexthop"))));
    }
    return nexthop;
}

PortIndex readInterface(const ConfigMap& map, const RouteContext& context,
                        const std::optional<IpAddress>& nexthop) {
    if (const auto port = map.find("interface")) {
        return context.portNames.read(*port);
    }
    if (!nexthop) {
        map.failFor("interface", "missing (interface or nexthop is needed)");
    }
    const std::optional<PortIndex> port = portOnSubnet(context, *nexthop);
    if (!port) {
        const ConfigValue value = map.required("nexthop");
        value.fail(fmt::format("{} is on no subnet of the ports in VRF {}; name its interface",
                               inQuotes(value.text("nexthop")), inQuotes(context.vrf)));
    }
    return *port;
}

/// What is told of labels needs labels.
std::vector<std::uint32_t> readLabels(const ConfigMap& map) {
    const auto list = map.find("labels");
    if (!list) {
        for (const std::string_view key : {"ttl", "tc", "push-ttl"}) {
            if (const auto told = map.find(key)) {
                told->fail("no labels are pushed");
            }
        }
        return {};
    }
    if (list->listSize() == 0 || list->listSize() > maxLabels) {
        list->fail(
            fmt::format("{} labels given, allowed are 1 to {}", list->listSize(), maxLabels));
    }
    return readLabelList(*list, "leave it out");
}

IpRouteViaConfig readVia(const ConfigValue& value, const RouteContext& context) {
    const ConfigMap map(value,
                        {"interface", "nexthop", "weight", "labels", "ttl", "tc", "push-ttl"});
    IpRouteViaConfig via;
    if (const auto nexthop = map.find("nexthop")) {
        via.nexthop = readNexthop(*nexthop, context);
    }
    via.port = readInterface(map, context, via.nexthop);
    via.weight = map.numberOr<std::uint32_t>("weight", 0, anyWeight, via.weight);
    via.labels = readLabels(map);
    via.ttl = static_cast<TtlMode>(map.choiceOr("ttl", ttlModes, 0));
    via.tc = map.optionalNumber<std::uint8_t>("tc", 0, 7);
    via.pushTtl = map.optionalNumber<std::uint8_t>("push-ttl", 1, 255);
    return via;
}

std::vector<IpRouteViaConfig> readVias(const ConfigMap& map, const RouteContext& context) {
    const auto single = map.find("via");
    const auto list = map.find("vias");
    const auto drop = map.find("drop");
    if (single && list) {
        single->fail("via and vias cannot both be given");
    }
    if (drop && drop->boolean()) {
        if (single || list) {
            drop->fail("a route that drops has no vias");
        }
        return {};
    }
    if (single) {
        const IpRouteViaConfig via = readVia(*single, context);
        checkWeights(*single, via.weight);
        return {via};
    }
    const ConfigValue required = map.required("vias");
    if (required.listSize() == 0 || required.listSize() > maxVias) {
        required.fail(
            fmt::format("{} vias given, allowed are 1 to {}", required.listSize(), maxVias));
    }
    std::vector<IpRouteViaConfig> vias;
    std::uint64_t total = 0;
    for (std::size_t i = 0; i < required.listSize(); ++i) {
        vias.push_back(readVia(required.item(i), context));
        total += vias.back().weight;
    }
    checkWeights(required, total);
    return vias;
}

/// A port's own subnets and addresses are routes already.
void checkNotConnected(const ConfigValue& value, const RouteContext& context) {
    for (const PortConfig& port : context.config.ports) {
        for (const IpInterfaceAddress& own : port.addresses) {
            const auto hostLength =
                static_cast<std::uint8_t>(own.address.family == IpAddress::Family::ipv4 ? 32 : 128);
            const bool isTaken = context.prefix == prefixOf(own.address, own.prefixLength) ||
                                 context.prefix == IpPrefix{own.address, hostLength};
            if (port.vrf == context.vrf && isTaken) {
                value.fail(fmt::format("{} is the subnet or address of port {}",
                                       inQuotes(value.text("prefix")), inQuotes(port.name)));
            }
        }
    }
}

IpRouteConfig readRoute(const ConfigValue& value, RouteContext context) {
    const ConfigMap map(value, {"vrf", "prefix", "vias", "via", "drop"});
    if (const auto vrf = map.find("vrf")) {
        context.vrf = vrf->name("VRF name", maxVrfNameSize);
    }
    const ConfigValue prefix = map.required("prefix");
    context.prefix = readIpPrefix(prefix);
    checkNotConnected(prefix, context);
    return {context.vrf, context.prefix, readVias(map, context), value.line()};
}

} // namespace

std::vector<IpRouteConfig> readRoutes(const ConfigValue& list, const AgentConfig& config,
                                      const PortNames& portNames) {
    std::vector<IpRouteConfig> routes;
    std::map<std::tuple<std::string, IpAddress::Family, std::array<std::uint8_t, 16>, std::uint8_t>,
             std::size_t>
        lines;
    for (std::size_t i = 0; i < list.listSize(); ++i) {
        const ConfigValue item = list.item(i);
        routes.push_back(readRoute(item, {config, portNames}));
        const IpRouteConfig& route = routes.back();
        const auto [first, isNew] =
            lines.emplace(std::tuple(route.vrf, route.prefix.address.family,
                                     route.prefix.address.bytes, route.prefix.length),
                          item.line());
        if (!isNew) {
            const ConfigMap map(item);
            const ConfigValue prefix = map.required("prefix");
            prefix.fail(fmt::format("prefix {} of VRF {} is already defined at line {}",
                                    inQuotes(prefix.text("prefix")), inQuotes(route.vrf),
                                    first->second));
        }
    }
    return routes;
}

bool hasRoutes(const AgentConfig& config, const std::string& vrf) {
    return std::any_of(config.routes.begin(), config.routes.end(),
                       [&](const IpRouteConfig& route) { return route.vrf == vrf; });
}

} // namespace OvixAgent
