#include "Mpls/TransitRoutes.h"

namespace Mpls {

void transitRouteIs(TablePublisher& tables, RouteKey label, std::span<const WeightedVia> vias) {
    tables.lfib(TableId::transitLfib)
        .routeIs(label, LfibViaType::ip, LfibViaSetType::unicast, vias);
    const std::uint32_t key = label.topLabel().value();
    tables.hardware().adjacencyIs(key, *Hardware::Adjacency::create(vias, {}, false));
    tables.hardware().routeIs({label, key, false});
}

bool transitRouteDel(TablePublisher& tables, RouteKey label) {
    tables.hardware().routeDel(label);
    tables.hardware().adjacencyDel(label.topLabel().value());
    return tables.lfib(TableId::transitLfib).routeDel(label);
}

} // namespace Mpls
