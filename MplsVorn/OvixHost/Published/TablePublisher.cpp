#include "Published/TablePublisher.h"

namespace Mpls {

TablePublisher::TablePublisher(Tessel::TableMemory memory, std::chrono::milliseconds keptFor)
    : tables_(std::move(memory), tableDirectory, keptFor),
      lfibs_{LfibWriter(tables_, TableId::decapLfib),
             LfibWriter(tables_, TableId::evpnEthernetSegmentFilterLfib),
             LfibWriter(tables_, TableId::evpnEtreeLeafLabelLfib),
             LfibWriter(tables_, TableId::pseudowireLfib),
             LfibWriter(tables_, TableId::transitLfib)},
      hardware_(tables_), mvpn_(tables_, static_cast<std::size_t>(TableId::mvpnIntfStatus)),
      interfaces_(tables_, static_cast<std::size_t>(TableId::interfaceNames)),
      ipRoutes_(tables_, static_cast<std::size_t>(TableId::ipRoutes)) {
    if (tables_.repaired() > 0) {
        mvpn_.closeGaps();
        commit();
    }
}

void TablePublisher::discard() {
    tables_.discard();
    interfaces_.discard();
    ipRoutes_.discard();
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
