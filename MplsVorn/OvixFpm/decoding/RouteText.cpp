#include "decoding/RouteText.h"

namespace OvixFpm {
namespace {

std::string text(const NextHops& hops) {
    std::string line;
    for (const NextHop& hop : hops) {
        line += line.empty() ? "" : ", ";
        line += OvixFpm::text(hop);
    }
    return line;
}

const char* text(RouteEnd end) {
    switch (end) {
    case RouteEnd::blackhole:
        return "blackhole";
    case RouteEnd::unreachable:
        return "unreachable";
    case RouteEnd::prohibit:
        return "prohibit";
    case RouteEnd::local:
        return "local";
    }
    return "";
}

std::string head(IncomingLabel label) {
    return "label " + label.label().prettyString();
}

std::string protocol(std::uint8_t number) {
    return " protocol " + std::to_string(number) + ": ";
}

struct ChangeText {
    std::string operator()(const LabelRoute& route) const {
        std::string line = head(route.label());
        if (route.ttlPropagated()) {
            line += *route.ttlPropagated() ? " ttl-propagate" : " no ttl-propagate";
        }
        return line + protocol(route.protocol()) + text(route.nextHops());
    }
    std::string operator()(const LabelWithdrawal& gone) const {
        return head(gone.label) + " withdrawn";
    }
    std::string operator()(const PrefixRoute& route) const {
        const std::string line = OvixFpm::text(route.destination()) + protocol(route.protocol());
        return route.nextHops() != nullptr ? line + text(*route.nextHops())
                                           : line + text(*route.end());
    }
    std::string operator()(const PrefixWithdrawal& gone) const {
        return OvixFpm::text(gone.destination) + " withdrawn";
    }
};

} // namespace

std::string text(const NextHop& hop) {
    std::string line = "[";
    for (const Lumo::MplsLabel label : hop.labels()) {
        line += line.size() > 1 ? "/" : "";
        line += label.prettyString();
    }
    line += "]";
    if (hop.way().hasGateway()) {
        line += " via " + hop.way().gateway().text();
    }
    if (hop.way().interface() != 0) {
        line += " interface " + std::to_string(hop.way().interface());
    }
    return line + " weight " + std::to_string(hop.weight());
}

std::string text(const Destination& destination) {
    return destination.prefix().text() + "/" + std::to_string(destination.length()) + " table " +
           std::to_string(destination.table());
}

std::string text(const RouteChange& change) {
    return std::visit(ChangeText{}, change);
}

} // namespace OvixFpm
