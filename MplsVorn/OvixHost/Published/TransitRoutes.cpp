#include "Published/TransitRoutes.h"

#include <exception>

namespace Mpls {

void transitRouteIs(TablePublisher& tables, RouteKey label, std::span<const WeightedRecord> vias) {
    tables.lfib(TableId::transitLfib)
        .routeIs(label, LfibViaType::ip, LfibViaSetType::unicast, vias);
    const std::uint32_t key = label.topLabel().value();
    tables.hardware().adjacencyIs(key, *Hardware::Adjacency::create(vias, {}, false));
    tables.hardware().routeIs({label, key, false});
}

Tessel::Result<void> transitRouteIs(TablePublisher& tables, const LabelRoute& route) {
    if (auto done = tables.lfib(TableId::transitLfib).routeIs(route); !done) {
        return done;
    }
    try {
        const std::uint32_t key = route.label.value();
        tables.hardware().adjacencyIs(
            key,
            *Hardware::Adjacency::create({route.viaType, route.setType, false, route.vias, {}}));
        tables.hardware().routeIs({route.key(), key, false});
    } catch (const std::exception& refused) {
        return Tessel::Refused{refused.what()};
    }
    return {};
}

bool transitRouteDel(TablePublisher& tables, RouteKey label) {
    if (!tables.lfib(TableId::transitLfib).routeDel(label)) {
        return false;
    }
    tables.hardware().routeDel(label);
    tables.hardware().adjacencyDel(label.topLabel().value());
    return true;
}

} // namespace Mpls
