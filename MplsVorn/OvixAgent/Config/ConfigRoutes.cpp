#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <tuple>

#include "Config/ConfigSections.h"
#include "Config/ConfigText.h"
#include "Config/ConfigVias.h"

namespace OvixAgent {

namespace {

using Mpls::Via;
using Mpls::WeightedVia;

/// What the parts of a route are read against.
struct RouteContext {
    const AgentConfig& config;
    const PortNames& portNames;
    std::string vrf;
    Lumo::IpGenPrefix prefix{};
};

/// The port of the VRF on whose subnet an address is; on the longest when there are several.
std::optional<PortIndex> portOnSubnet(const RouteContext& context, const Lumo::IpGenAddr& address) {
    std::optional<PortIndex> found;
    int longest = -1;
    for (PortIndex i = 0; i < context.config.ports.size(); ++i) {
        const PortConfig& port = context.config.ports[i];
        for (const InterfaceAddress& own : port.addresses) {
            if (port.vrf == context.vrf && own.prefixLength > longest &&
                own.subnet().contains(address)) {
                found = i;
                longest = own.prefixLength;
            }
        }
    }
    return found;
}

/// IPv4 packets may be sent to an IPv6 neighbour (RFC 8950), but IPv6 packets to an IPv4 one only
/// over MPLS (RFC 4798).
Lumo::IpGenAddr readNexthop(const ConfigValue& value, const RouteContext& context, bool hasLabels) {
    const Lumo::IpGenAddr nexthop = readIpAddress(value);
    if (nexthop.family() == Lumo::IpFamily::ipv4 && !hasLabels &&
        context.prefix.address().family() == Lumo::IpFamily::ipv6) {
        value.fail(fmt::format("{} is an IPv4 address, to which an IPv6 prefix needs labels",
                               inQuotes(value.text("nexthop"))));
    }
    return nexthop;
}

PortIndex readInterface(const ConfigMap& map, const RouteContext& context,
                        const Lumo::IpGenAddr& nexthop) {
    if (const auto port = map.find("interface")) {
        return context.portNames.read(*port);
    }
    if (nexthop.family() == Lumo::IpFamily::none) {
        map.failFor("interface", "missing (interface or nexthop is needed)");
    }
    const std::optional<PortIndex> port = portOnSubnet(context, nexthop);
    if (!port) {
        const ConfigValue value = map.required("nexthop");
        value.fail(fmt::format("{} is on no subnet of the ports in VRF {}; name its interface",
                               inQuotes(value.text("nexthop")), inQuotes(context.vrf)));
    }
    return *port;
}

/// The keys about labels need labels.
std::vector<Lumo::MplsLabel> readLabels(const ConfigMap& map) {
    const auto list = map.find("labels");
    if (!list) {
        for (const std::string_view key : {"ttl", "tc", "push-ttl", "entropy"}) {
            if (const auto given = map.find(key)) {
                given->fail("no labels are pushed");
            }
        }
        return {};
    }
    if (list->listSize() == 0 || list->listSize() > Via::maxLabels) {
        list->fail(
            fmt::format("{} labels given, allowed are 1 to {}", list->listSize(), Via::maxLabels));
    }
    return readLabelList(*list, "leave it out");
}

WeightedVia readVia(const ConfigValue& value, const RouteContext& context) {
    const ConfigMap map(value);
    Mpls::ViaOptions options;
    if (const auto nexthop = map.find("nexthop")) {
        options.nexthop = readNexthop(*nexthop, context, map.find("labels").has_value());
    }
    options.intf = context.portNames.intfId(readInterface(map, context, options.nexthop));
    const auto weight = map.numberOr<std::uint32_t>("weight", 0, maxWeight, 1);
    const std::vector<Lumo::MplsLabel> labels = readLabels(map);
    options.ttl = map.choiceOr("ttl", options.ttl);
    options.tc = map.optionalNumber<std::uint8_t>("tc", 0, 7);
    options.pushTtl = map.numberOr<std::uint8_t>("push-ttl", 1, 255, 0);
    options.entropy = map.booleanOr("entropy", options.entropy);
    map.refuseOthers();
    return {viaOrFail(value, labels.empty() ? Via::forward(options) : Via::push(labels, options)),
            weight};
}

/// What a route does with its packets; `drop` says true, or which ICMP error their source gets.
L3::Route::Kind readKind(const ConfigMap& map) {
    using Kind = L3::Route::Kind;
    const auto drop = map.find("drop");
    if (!drop) {
        return Kind::forward;
    }
    for (const Kind answered : {Kind::unreachable, Kind::prohibit}) {
        if (drop->text("drop") == Tessel::wordOf(answered)) {
            return answered;
        }
    }
    return drop->boolean() ? Kind::drop : Kind::forward;
}

/// None for a route that drops.
std::vector<WeightedVia> readRouteVias(const ConfigMap& map, L3::Route::Kind kind,
                                       const RouteContext& context) {
    const auto single = map.find("via");
    const auto list = map.find("vias");
    if (single && list) {
        single->fail("via and vias cannot both be given");
    }
    if (kind != L3::Route::Kind::forward) {
        if (single || list) {
            map.required("drop").fail("a route that drops has no vias");
        }
        return {};
    }
    if (single) {
        const WeightedVia via = readVia(*single, context);
        checkWeights(*single, via.weight);
        return {via};
    }
    const ConfigValue required = map.required("vias");
    if (required.listSize() == 0 || required.listSize() > maxVias) {
        required.fail(
            fmt::format("{} vias given, allowed are 1 to {}", required.listSize(), maxVias));
    }
    std::vector<WeightedVia> vias;
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
        for (const InterfaceAddress& own : port.addresses) {
            const bool isTaken = context.prefix == own.subnet() ||
                                 context.prefix == Lumo::IpGenPrefix::ofHost(own.address);
            if (port.vrf == context.vrf && isTaken) {
                value.fail(fmt::format("{} is the subnet or address of port {}",
                                       inQuotes(value.text("prefix")), inQuotes(port.name)));
            }
        }
    }
}

L3::Route readRoute(const ConfigMap& map, const AgentConfig& config, const PortNames& portNames) {
    RouteContext context{config, portNames, readVrf(map)};
    const ConfigValue prefix = map.required("prefix");
    context.prefix = readIpPrefix(prefix);
    checkNotConnected(prefix, context);
    L3::Route route;
    route.key = {L3::RouteKey::mainTable, context.prefix.address(), context.prefix.length()};
    route.kind = readKind(map);
    route.vias = readRouteVias(map, route.kind, context);
    route.vrf = context.vrf == L3::defaultVrf ? std::string_view() : context.vrf;
    return route;
}

std::string_view vrfOf(const L3::Route& route) {
    return route.vrf.empty() ? L3::defaultVrf : route.vrf.view();
}

} // namespace

std::vector<Placed<L3::Route>> readRoutes(const ConfigValue& list, const AgentConfig& config,
                                          const PortNames& portNames) {
    std::vector<Placed<L3::Route>> routes;
    std::map<std::pair<std::string, L3::RouteKey>, std::size_t> lines;
    for (std::size_t i = 0; i < list.listSize(); ++i) {
        const ConfigValue item = list.item(i);
        const ConfigMap map(item);
        const L3::Route route = readRoute(map, config, portNames);
        map.refuseOthers();
        const std::string vrf(vrfOf(route));
        const auto [first, isNew] = lines.emplace(std::pair(vrf, route.key), item.line());
        if (!isNew) {
            const ConfigValue prefix = map.required("prefix");
            prefix.fail(fmt::format("prefix {} of VRF {} is already defined at line {}",
                                    inQuotes(prefix.text("prefix")), inQuotes(vrf), first->second));
        }
        routes.push_back({route, item.line()});
    }
    return routes;
}

bool hasRoutes(const AgentConfig& config, std::string_view vrf) {
    return std::any_of(config.routes.begin(), config.routes.end(),
                       [&](const auto& route) { return vrfOf(route.value) == vrf; });
}

} // namespace OvixAgent
