#include "RouteMaker.h"

#include <fmt/format.h>

#include "Published/TransitRoutes.h"
#include "Router.h"
#include "Vias.h"

namespace Differential {

using Mpls::LabelRoute;
using Mpls::LfibViaType;
using Mpls::TableId;

namespace {

/// Where a table stands in the order of lookups; the transit table has its routes in the hardware
/// status.
std::size_t lookupOf(TableId table) {
    switch (table) {
    case TableId::decapLfib:
        return 0;
    case TableId::evpnEthernetSegmentFilterLfib:
        return 1;
    case TableId::pseudowireLfib:
        return 2;
    case TableId::evpnEtreeLeafLabelLfib:
        return 3;
    default:
        return 4;
    }
}

TableId anyTable(Random& random) {
    const std::uint32_t of = random.below(10);
    return of < 5   ? TableId::decapLfib
           : of < 7 ? TableId::transitLfib
           : of < 8 ? TableId::pseudowireLfib
           : of < 9 ? TableId::evpnEthernetSegmentFilterLfib
                    : TableId::evpnEtreeLeafLabelLfib;
}

Step withdrawal(Network& network, TableId table, std::uint32_t label) {
    network.held[label][lookupOf(table)].reset();
    return {fmt::format("lfib {}: del {}", Tessel::wordOf(table), label),
            [table, label](Router& router) {
                const auto key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
                if (table == TableId::transitLfib) {
                    Mpls::transitRouteDel(router.publisher(), key);
                } else {
                    router.publisher().lfib(table).routeDel(key);
                }
            }};
}

Step addition(Network& network, const LabelRoute& route, Traffic traffic) {
    network.held[route.label.value()][lookupOf(route.table)] = traffic;
    return {describe(route), [route](Router& router) {
                const auto done = route.table == TableId::transitLfib
                                      ? Mpls::transitRouteIs(router.publisher(), route)
                                      : router.publisher().lfib(route.table).routeIs(route);
                if (!done) {
                    router.publisher().discard(); // the same on both roads
                }
            }};
}

/// A via set without vias, which leads nowhere.
Step nullSet(Network& network, TableId table, std::uint32_t label) {
    network.held[label][lookupOf(table)] = Traffic::other;
    return {fmt::format("lfib {}: {} with an empty via set", Tessel::wordOf(table), label),
            [table, label](Router& router) {
                router.publisher().lfib(table).rawRouteIs(
                    Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label)), Mpls::LfibViaSet{});
            }};
}

LabelRoute pseudowireRoute(Random& random, const Network& network, std::uint32_t label) {
    LabelRoute route;
    route.label = Lumo::MplsLabel(label);
    route.table = TableId::pseudowireLfib;
    Mpls::ViaOptions options;
    options.intf =
        Lumo::IntfId(network.ports[random.chance(90) ? network.ports.size() - 1 : 0].name);
    options.payload = Mpls::PayloadType::ethernet;
    route.vias = {{Mpls::Via::pop(options).value(), 1}};
    return route;
}

Step routeChange(Random& random, Network& network) {
    const std::uint32_t label = random.pick(network.labels);
    TableId table = anyTable(random);
    const bool isHeld = network.held[label][lookupOf(table)].has_value();
    if (isHeld && random.chance(40)) {
        return withdrawal(network, table, label);
    }
    if (random.chance(2) && table != TableId::transitLfib) {
        return nullSet(network, table, label);
    }
    if (random.chance(8)) {
        return addition(network, pseudowireRoute(random, network, label), Traffic::pseudowireOut);
    }
    const ViaSet set = makeViaSet(random, network, table != TableId::transitLfib);
    LabelRoute route;
    route.label = Lumo::MplsLabel(label);
    route.table = table;
    route.viaType = set.type;
    route.setType =
        set.isMulticast ? Mpls::LfibViaSetType::multicast : Mpls::LfibViaSetType::unicast;
    route.vias = set.vias;
    route.tail = set.tail;
    return addition(network, route, set.traffic);
}

constexpr std::uint32_t adjacencies = 12;

Step adjacencyChange(Random& random, Network& network) {
    const std::uint32_t id = random.below(adjacencies);
    if (random.chance(10)) {
        return {fmt::format("adjacency {}: del", id),
                [id](Router& router) { router.publisher().hardware().adjacencyDel(id); }};
    }
    const ViaSet set = makeViaSet(random, network, false);
    Mpls::Hardware::AdjacencyVias content;
    content.viaType = set.type;
    content.setType =
        set.isMulticast ? Mpls::LfibViaSetType::multicast : Mpls::LfibViaSetType::unicast;
    content.vias = set.vias;
    if (random.chance(40)) {
        content.backups = makeViaSet(random, network, false).vias;
        content.useBackups = random.chance(30);
    }
    return {fmt::format("adjacency {}: {}", id, describe(content)), [id, content](Router& router) {
                router.publisher().hardware().adjacencyIs(
                    id, *Mpls::Hardware::Adjacency::create(content));
            }};
}

Step hardwareRouteChange(Random& random, Network& network) {
    const std::uint32_t label = random.pick(network.labels);
    const auto key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
    if (random.chance(25)) {
        network.held[label][4].reset();
        return {fmt::format("hardware: del {}", label),
                [key](Router& router) { router.publisher().hardware().routeDel(key); }};
    }
    const Mpls::Hardware::Route route{key, random.below(adjacencies + 1), random.chance(8)};
    network.held[label][4] = Traffic::other;
    return {fmt::format("hardware: {} adjacency {}{}", label, route.adjacencyKey,
                        route.unprogrammed ? " unprogrammed" : ""),
            [route](Router& router) { Mpls::platformRouteIs(router.publisher(), route); }};
}

} // namespace

Step makeLabelChange(Random& random, Network& network) {
    const std::uint32_t of = random.below(10);
    return of < 7   ? routeChange(random, network)
           : of < 9 ? adjacencyChange(random, network)
                    : hardwareRouteChange(random, network);
}

} // namespace Differential
