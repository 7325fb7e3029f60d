#include <stdexcept>

#include "Bundle/Anonymise.h"
#include "Published/Pseudowires.h"
#include "Published/TransitRoutes.h"

namespace OvixAgent {

namespace {

/// With other next hops.
std::vector<Mpls::WeightedVia> anonymousVias(const std::vector<Mpls::WeightedVia>& vias,
                                             const AddressMap& map) {
    std::vector<Mpls::WeightedVia> made;
    for (const Mpls::WeightedVia& weighted : vias) {
        Ovix::OvixMplsVia record = weighted.via.record();
        record.nexthop = map(record.nexthop);
        const auto via = Mpls::Via::fromRecord(record);
        if (!via) {
            throw std::runtime_error(via.refused().what);
        }
        made.push_back({via.value(), weighted.weight});
    }
    return made;
}

void takeHardware(const Mpls::PublishedTables& from, Mpls::TablePublisher& to,
                  const AddressMap& map) {
    std::vector<bool> derived(Tessel::TableLayout::maxKey + std::size_t{1});
    std::vector<Mpls::Hardware::Route> routes;
    from.hardware()->forEachLabel([&](std::uint32_t label) {
        const auto route =
            from.hardware()->route(Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label)));
        derived[route.adjacencyKey] = derived[route.adjacencyKey] || route.derived;
        if (!route.derived) {
            routes.push_back(route);
        }
    });
    from.hardware()->forEachAdjacency([&](std::uint32_t key) {
        const auto adjacency = derived[key] ? nullptr : from.hardware()->adjacency(key);
        if (!adjacency) {
            return;
        }
        auto content = adjacency->content();
        if (!content) {
            throw std::runtime_error(content.refused().what);
        }
        content.value().vias = anonymousVias(content.value().vias, map);
        content.value().backups = anonymousVias(content.value().backups, map);
        to.hardware().adjacencyIs(key, *Mpls::Hardware::Adjacency::create(content.value()));
    });
    for (const Mpls::Hardware::Route& route : routes) {
        to.hardware().routeIs(route);
    }
}

/// Of the routes of a label only those in use: the others change no verdict.
void takeLabelRoutes(const Mpls::PublishedTables& from, Mpls::TablePublisher& to,
                     const AddressMap& map) {
    for (std::size_t i = 0; i < Mpls::lfibs; ++i) {
        const auto table = static_cast<Mpls::TableId>(i);
        from.lfib(table)->forEachRoute([&](const Mpls::LfibRoute& entry) {
            auto route = Mpls::readLabelRoute(*from.lfib(table), table, entry.routeKey.topLabel());
            if (!route) {
                throw std::runtime_error(route.refused().what);
            }
            route.value().vias = anonymousVias(route.value().vias, map);
            if (const auto done = to.labelRoutes().routeIs(route.value()); !done) {
                throw std::runtime_error(done.refused().what);
            }
        });
    }
}

void takeIpRoutes(const Ptr<Tessel::TableReader>& from, Mpls::TablePublisher& to,
                  const AddressMap& map) {
    const L3::Routes routes(from);
    from->forEach(routes.table(), [&](std::uint32_t place, Tessel::TableRef) {
        if (auto route = routes.at(place)) {
            const Lumo::IpGenPrefix range = map(route->key.range());
            route->key.prefix = range.address();
            route->vias = anonymousVias(route->vias, map);
            to.ipRoutes().routeIs(*route);
        }
    });
}

void takePseudowires(const Tessel::TableReader& from, Mpls::TablePublisher& to,
                     const AddressMap& map) {
    std::vector<L2::Pseudowire> all = L2::Pseudowires::read(from);
    for (L2::Pseudowire& pseudowire : all) {
        pseudowire.neighbour = map(pseudowire.neighbour);
        pseudowire.why.clear();
        for (Lumo::IpGenAddr& address : pseudowire.adjacent) {
            address = map(address);
        }
    }
    to.pseudowires().pseudowiresAre(all);
}

} // namespace

Tessel::TableCopy anonymousTables(const Tessel::TableCopy& tables, const AgentConfig& config,
                                  const AddressMap& map) {
    const Ptr<Tessel::TableReader> reader = tables.reader();
    const Mpls::PublishedTables from(reader);
    Mpls::TablePublisher to(Tessel::TableMemory::ofProcess());
    for (const PortConfig& port : config.ports) {
        to.interfaces().intfId(port.name);
    }
    takeHardware(from, to, map);
    takeLabelRoutes(from, to, map);
    from.mvpn()->forEachEntry(
        [&](const auto& entry) { to.mvpn().vrfIntfIdIs(entry.vrfId, entry.intfId); });
    takeIpRoutes(reader, to, map);
    takePseudowires(*reader, to, map);
    to.commit();
    return Tessel::TableCopy::ofNewest("tables", to.tables().memory());
}

} // namespace OvixAgent
