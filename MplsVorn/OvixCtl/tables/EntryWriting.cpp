#include "tables/EntryWriting.h"

#include <cassert>
#include <fmt/format.h>
#include <optional>
#include <stdexcept>

#include "Published/TransitRoutes.h"

namespace OvixCtl {

using Mpls::TableId;
using Mpls::Hardware::AdjacencyVias;
using Routing::Multicast::MvpnVrfIntfId;

namespace {

Mpls::RouteKey keyOf(std::uint32_t label) {
    return Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
}

/// Writes the content of an entry as it is.
struct Put {
    void operator()(const Mpls::LabelRoute& route) const {
        if (const auto done = publisher.lfib(route.table).routeIs(route); !done) {
            throw std::length_error(done.refused().what);
        }
    }
    void operator()(const Mpls::Hardware::Route& route) const {
        publisher.hardware().routeIs(route);
    }
    void operator()(const AdjacencyVias& adjacency) const {
        publisher.hardware().adjacencyIs(key, *Mpls::Hardware::Adjacency::create(adjacency));
    }
    void operator()(const MvpnVrfIntfId& vpn) const {
        publisher.mvpn().vrfIntfIdIs(vpn.vrfId, vpn.intfId);
    }
    /// The configuration and Mpls::Via disagree on what is legal.
    void operator()(const Damage& damage) const { throw std::runtime_error(damage.what); }

    Mpls::TablePublisher& publisher;
    std::uint32_t key;
};

/// A hardware route through the adjacency, if there is one.
std::optional<Mpls::Hardware::Route> userOf(const TableView& now, std::uint32_t adjacency) {
    assert(adjacency <= Tessel::TableLayout::maxKey);
    for (const std::uint32_t label : now.keys(TableId::hardwareRoutes).keys) {
        const Entry entry = now.entry(TableId::hardwareRoutes, label);
        const auto* route = std::get_if<Mpls::Hardware::Route>(&entry.content);
        if (route != nullptr && route->adjacencyKey == adjacency) {
            return *route;
        }
    }
    return std::nullopt;
}

Tessel::Refused refuseDerived(std::uint32_t label) {
    return {fmt::format("it belongs to the route of label {} in table transit; change that one",
                        label)};
}

} // namespace

void entryIs(Mpls::TablePublisher& publisher, const Entry& entry) {
    std::visit(Put{publisher, entry.key}, entry.content);
}

Tessel::Result<void> changeEntry(Mpls::TablePublisher& publisher, const TableView& now,
                                 const Entry& entry) {
    assert(entry.damage() == nullptr);
    if (Mpls::isLfib(entry.table)) {
        return publisher.labelRoutes().routeIs(std::get<Mpls::LabelRoute>(entry.content));
    }
    if (const auto* route = std::get_if<Mpls::Hardware::Route>(&entry.content)) {
        if (route->derived) {
            return refuseDerived(entry.key);
        }
        const auto adjacency = static_cast<std::uint32_t>(route->adjacencyKey);
        if (!now.has(TableId::hardwareAdjacencies, adjacency)) {
            return Tessel::Refused{fmt::format("there is no adjacency {}", adjacency)};
        }
        if (const auto user = userOf(now, adjacency); user && user->derived) {
            return Tessel::Refused{
                fmt::format("adjacency {} belongs to the route of label {} in table transit",
                            adjacency, user->routeKey.topLabel().value())};
        }
        Mpls::platformRouteIs(publisher, *route);
        return {};
    }
    if (entry.table == TableId::hardwareAdjacencies) {
        if (const auto user = userOf(now, entry.key); user && user->derived) {
            return refuseDerived(user->routeKey.topLabel().value());
        }
    }
    entryIs(publisher, entry);
    return {};
}

Tessel::Result<void> removeEntry(Mpls::TablePublisher& publisher, const TableView& now,
                                 TableId table, std::uint32_t key) {
    assert(!Mpls::isLfib(table));
    if (table == TableId::hardwareAdjacencies) {
        if (const auto user = userOf(now, key)) {
            return Tessel::Refused{
                fmt::format("label {} is forwarded by it", user->routeKey.topLabel().value())};
        }
    }
    if (table == TableId::hardwareRoutes && publisher.hardware().route(keyOf(key)).derived) {
        return refuseDerived(key);
    }
    if (table == TableId::hardwareRoutes) {
        Mpls::platformRouteDel(publisher, keyOf(key));
    } else if (table == TableId::hardwareAdjacencies) {
        publisher.hardware().adjacencyDel(key);
    } else {
        publisher.mvpn().vrfIntfIdDel({key});
    }
    return {};
}

} // namespace OvixCtl
