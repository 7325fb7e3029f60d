#include "Published/TransitRoutes.h"

namespace Mpls {

void transitRouteIs(TablePublisher& tables, RouteKey label, std::span<const WeightedVia> vias) {
    tables.lfib(TableId::transitLfib)
        .routeIs(label, LfibViaType::ip, LfibViaSetType::unicast, vias);
    const std::uint32_t key = label.topLabel().value();
    tables.hardware().adjacencyIs(key, *Hardware::Adjacency::create(vias, {}, false));
    tables.hardware().routeIs({label, key, false});
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
