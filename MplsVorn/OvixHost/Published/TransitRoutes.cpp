#include "Published/TransitRoutes.h"

#include <algorithm>
#include <cassert>
#include <exception>
#include <stdexcept>
#include <string>

namespace Mpls {

namespace {

bool endsHere(const LabelRoute& route) noexcept {
    return route.tail || std::any_of(route.vias.begin(), route.vias.end(),
                                     [](const auto& via) { return via.via.isLookUp(); });
}

/// Which adjacency a derived route of the label gets. Throws std::length_error.
std::uint32_t adjacencyFor(const Hardware::StatusWriter& hardware, RouteKey label) {
    if (const Hardware::Route now = hardware.route(label); now.derived) {
        return static_cast<std::uint32_t>(now.adjacencyKey);
    }
    std::uint32_t key = label.topLabel().value();
    if (hardware.hasAdjacency(key)) {
        key = Tessel::TableLayout::maxKey;
        while (hardware.hasAdjacency(key)) {
            if (key-- == 0) {
                throw std::length_error("there are 1048576 adjacencies, no more fit");
            }
        }
    }
    return key;
}

void removeDerived(Hardware::StatusWriter& hardware, RouteKey label) {
    if (const Hardware::Route now = hardware.route(label); now.derived) {
        hardware.routeDel(label);
        hardware.adjacencyDel(now.adjacencyKey);
    }
}

} // namespace

Tessel::Result<void> transitRouteIs(TablePublisher& tables, const LabelRoute& route) {
    assert(route.table == TableId::transitLfib);
    if (endsHere(route)) {
        return Tessel::Refused{"a route with " + std::string(route.tail ? "tail" : "vrf") +
                               " ends here and cannot be in table transit"};
    }
    if (auto done = tables.lfib(TableId::transitLfib).routeIs(route); !done) {
        return done;
    }
    Hardware::StatusWriter& hardware = tables.hardware();
    const Hardware::Route now = hardware.route(route.key());
    if (now != Hardware::Route() && !now.derived) {
        return {};
    }
    try {
        const std::uint32_t adjacency = adjacencyFor(hardware, route.key());
        // The route first: whoever removes it after a failure finds the adjacency by it.
        hardware.routeIs({route.key(), adjacency, false, true});
        hardware.adjacencyIs(adjacency, *Hardware::Adjacency::create(
                                            {route.viaType, route.setType, false, route.vias, {}}));
    } catch (const std::exception& refused) {
        return Tessel::Refused{refused.what()};
    }
    return {};
}

bool transitRouteDel(TablePublisher& tables, RouteKey label) {
    const bool found = tables.lfib(TableId::transitLfib).routeDel(label);
    if (found) {
        removeDerived(tables.hardware(), label);
    }
    return found;
}

void platformRouteIs(TablePublisher& tables, const Hardware::Route& route) {
    assert(!route.derived);
    removeDerived(tables.hardware(), route.routeKey);
    tables.hardware().routeIs(route);
}

} // namespace Mpls
