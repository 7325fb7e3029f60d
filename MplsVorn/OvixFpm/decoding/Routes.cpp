#include "decoding/Routes.h"

#include <array>
#include <cassert>
#include <string_view>

namespace OvixFpm {

namespace {

constexpr std::array<std::string_view, 4> endWords{"blackhole", "unreachable", "prohibit", "local"};

std::string text(const Route& route) {
    assert(route.nextHops.empty() == route.end.has_value());
    std::string line;
    if (route.ttlPropagated) {
        line += *route.ttlPropagated ? " ttl-propagate" : " no ttl-propagate";
    }
    line += " protocol " + std::to_string(route.protocol) + ": ";
    if (route.end) {
        return line.append(endWords[static_cast<std::size_t>(*route.end)]);
    }
    const char* separator = "";
    for (const NextHop& hop : route.nextHops) {
        line += separator + OvixFpm::text(hop);
        separator = ", ";
    }
    return line;
}

} // namespace

std::string text(const NextHop& hop) {
    std::string line = "[";
    for (const Lumo::MplsLabel label : hop.labels) {
        line += line.size() > 1 ? "/" : "";
        line += label.prettyString();
    }
    line += "]";
    if (hop.hasGateway()) {
        line += " via " + hop.gateway.text();
    }
    if (hop.interface != 0) {
        line += " interface " + std::to_string(hop.interface);
    }
    return line + " weight " + std::to_string(hop.weight);
}

std::string text(const Destination& destination) {
    if (const auto* label = std::get_if<Lumo::MplsLabel>(&destination)) {
        return "label " + label->prettyString();
    }
    const auto& key = std::get<L3::RouteKey>(destination);
    return key.prefix.text() + "/" + std::to_string(key.length) + " table " +
           std::to_string(key.table);
}

std::string text(const RouteChange& change) {
    return text(change.to) + (change.route ? text(*change.route) : " withdrawn");
}

} // namespace OvixFpm
