#include "Published/TransitRoutes.h"

#include <cassert>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>

namespace Mpls {

namespace {

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

/// Throws std::length_error.
void derive(TablePublisher& tables, const LabelRoute& route) {
    Hardware::StatusWriter& hardware = tables.hardware();
    const std::uint32_t adjacency = adjacencyFor(hardware, route.key());
    // The route first: whoever removes it after a failure finds the adjacency by it.
    hardware.routeIs({route.key(), adjacency, false, true});
    hardware.adjacencyIs(adjacency, *Hardware::Adjacency::create(
                                        {route.viaType, route.setType, false, route.vias, {}}));
}

/// The label whose derived route has the adjacency.
std::optional<Lumo::MplsLabel> derivedUser(TablePublisher& tables, std::uint32_t adjacency) {
    const auto isUser = [&](std::uint32_t label) {
        const Hardware::Route route =
            tables.hardware().route(RouteKey::fromLabel(Lumo::MplsLabel(label)));
        return route.derived && route.adjacencyKey == adjacency;
    };
    if (!tables.hardware().hasAdjacency(adjacency)) {
        return std::nullopt;
    }
    if (isUser(adjacency)) {
        return Lumo::MplsLabel(adjacency);
    }
    std::optional<Lumo::MplsLabel> found;
    tables.tables().working()->forEach(static_cast<std::size_t>(TableId::hardwareRoutes),
                                       [&](std::uint32_t label, auto) {
                                           if (isUser(label)) {
                                               found = Lumo::MplsLabel(label);
                                           }
                                       });
    return found;
}

void deriveAgain(TablePublisher& tables, RouteKey label) {
    if (!tables.lfib(TableId::transitLfib).has(label)) {
        return;
    }
    const auto lfib = Tessel::make<LfibStatus>(tables.tables().working(), TableId::transitLfib);
    if (const auto route = readLabelRoute(*lfib, TableId::transitLfib, label.topLabel())) {
        derive(tables, route.value());
    }
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
    if (auto legal = checkTable(route); !legal) {
        return legal;
    }
    if (auto done = tables.lfib(TableId::transitLfib).routeIs(route); !done) {
        return done;
    }
    const Hardware::Route now = tables.hardware().route(route.key());
    if (now != Hardware::Route() && !now.derived) {
        return {};
    }
    try {
        derive(tables, route);
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

void platformRouteDel(TablePublisher& tables, RouteKey label) {
    assert(!tables.hardware().route(label).derived);
    tables.hardware().routeDel(label);
    deriveAgain(tables, label);
}

void platformAdjacencyIs(TablePublisher& tables, std::uint32_t id,
                         const Hardware::Adjacency& adjacency) {
    const auto user = derivedUser(tables, id);
    if (user) {
        removeDerived(tables.hardware(), RouteKey::fromLabel(*user));
    }
    tables.hardware().adjacencyIs(id, adjacency);
    if (user) {
        deriveAgain(tables, RouteKey::fromLabel(*user));
    }
}

} // namespace Mpls
