#include "tables/TableLoad.h"

#include <algorithm>
#include <cassert>
#include <fmt/format.h>
#include <stdexcept>

#include "Published/TransitRoutes.h"

namespace OvixCtl {

using Mpls::RouteKey;
using Mpls::TableId;

namespace {

RouteKey labelKey(std::uint32_t label) {
    return RouteKey::fromLabel(Lumo::MplsLabel(label));
}

} // namespace

TableLoad::TableLoad(Mpls::TablePublisher& publisher, Mpls::RouteOwner owner)
    : publisher_(&publisher), owner_(owner) {
    for (std::vector<bool>& labels : given_) {
        labels.resize(Lumo::MplsLabel::max + std::size_t{1});
    }
    derived_.resize(Tessel::TableLayout::maxKey + std::size_t{1});
}

Tessel::Result<void> TableLoad::add(const Entry& entry) {
    assert(entry.damage() == nullptr);
    if (Mpls::isLfib(entry.table)) {
        return addRoute(entry);
    }
    const auto* route = std::get_if<Mpls::Hardware::Route>(&entry.content);
    if (route != nullptr && route->derived) {
        derived_.at(route->adjacencyKey) = true;
        return {}; // both follow from the route in table transit
    }
    if (entry.table == TableId::hardwareAdjacencies && derived_[entry.key]) {
        return {};
    }
    if (!others_[entry.table].emplace(entry.key, entry).second) {
        return Tessel::Refused{"is there already"};
    }
    return {};
}

/// A line without an owner is the operator's if it stands in the tables like that already, as lfib
/// show has printed it.
bool TableLoad::isOfAnother(const Mpls::LabelRoute& route) const {
    if (route.owner != Mpls::RouteOwner::byHand) {
        return route.owner != owner_;
    }
    return owner_ != route.owner &&
           publisher_->labelRoutes().route(route.table, route.label, route.owner) == route;
}

Tessel::Result<void> TableLoad::addRoute(const Entry& entry) {
    Mpls::LabelRoute route = std::get<Mpls::LabelRoute>(entry.content);
    if (isOfAnother(route)) {
        ++leftOut_;
        return {};
    }
    auto given = given_[static_cast<std::size_t>(entry.table)][entry.key];
    if (given) {
        return Tessel::Refused{"is there already"};
    }
    given = true;
    route.owner = owner_;
    Mpls::LabelRoutes& routes = publisher_->labelRoutes();
    const auto before = routes.route(route.table, route.label, owner_);
    if (before == route) {
        return {};
    }
    ++(before ? counts_.changed : counts_.added);
    return routes.routeIs(route);
}

void TableLoad::finish() {
    for (const Mpls::LabelRoutes::Place& place : publisher_->labelRoutes().of(owner_)) {
        if (!given_[static_cast<std::size_t>(place.table)][place.label.value()]) {
            publisher_->labelRoutes().routeDel(place.table, place.label, owner_);
            ++counts_.removed;
        }
    }
    finishAdjacencies();
    finishHardwareRoutes();
    finishMvpn();
    removeOthers();
}

// Whatever refers to an adjacency comes after it.
void TableLoad::finishAdjacencies() {
    const TableView now(publisher_->tables().working());
    const std::vector<bool> derived = now.derivedAdjacencies();
    for (const auto& [id, entry] : others_[TableId::hardwareAdjacencies]) {
        const bool existed = now.has(entry.table, id) && !derived[id];
        if (existed && now.entry(entry.table, id) == entry) {
            continue;
        }
        ++(existed ? counts_.changed : counts_.added);
        const auto& content = std::get<Mpls::Hardware::AdjacencyVias>(entry.content);
        Mpls::platformAdjacencyIs(*publisher_, id, *Mpls::Hardware::Adjacency::create(content));
    }
}

void TableLoad::finishHardwareRoutes() {
    for (const auto& [label, entry] : others_[TableId::hardwareRoutes]) {
        const auto& route = std::get<Mpls::Hardware::Route>(entry.content);
        const Mpls::Hardware::Route before = publisher_->hardware().route(labelKey(label));
        if (before != route) {
            if (!publisher_->hardware().hasAdjacency(
                    static_cast<std::uint32_t>(route.adjacencyKey))) {
                throw std::runtime_error(
                    fmt::format("label {} in table hardware: there is no adjacency {}", label,
                                route.adjacencyKey));
            }
            ++(before == Mpls::Hardware::Route() || before.derived ? counts_.added
                                                                   : counts_.changed);
            Mpls::platformRouteIs(*publisher_, route);
        }
    }
}

void TableLoad::finishMvpn() {
    const TableView now(publisher_->tables().working());
    const auto before = now.keys(TableId::mvpnIntfStatus).keys;
    for (const auto& [vrf, entry] : others_[TableId::mvpnIntfStatus]) {
        const bool existed = std::binary_search(before.begin(), before.end(), vrf);
        if (existed && now.entry(entry.table, vrf) == entry) {
            continue;
        }
        ++(existed ? counts_.changed : counts_.added);
        const auto& vpn = std::get<Routing::Multicast::MvpnVrfIntfId>(entry.content);
        publisher_->mvpn().vrfIntfIdIs(vpn.vrfId, vpn.intfId);
    }
}

void TableLoad::removeOthers() {
    const TableView now(publisher_->tables().working());
    const auto isGone = [&](TableId table, std::uint32_t key) {
        return !others_[table].contains(key);
    };
    const std::vector<bool> derived = now.derivedAdjacencies();
    std::vector<std::uint32_t> labels;
    for (const std::uint32_t label : now.keys(TableId::hardwareRoutes).keys) {
        if (isGone(TableId::hardwareRoutes, label) &&
            !publisher_->hardware().route(labelKey(label)).derived) {
            labels.push_back(label);
        }
    }
    const auto adjacencies = now.keys(TableId::hardwareAdjacencies).keys;
    const auto vrfs = now.keys(TableId::mvpnIntfStatus).keys;
    for (const std::uint32_t id : adjacencies) {
        if (isGone(TableId::hardwareAdjacencies, id) && !derived[id]) {
            publisher_->hardware().adjacencyDel(id);
            ++counts_.removed;
        }
    }
    for (const std::uint32_t label : labels) {
        Mpls::platformRouteDel(*publisher_, labelKey(label));
        ++counts_.removed;
    }
    for (const std::uint32_t vrf : vrfs) {
        if (isGone(TableId::mvpnIntfStatus, vrf)) {
            publisher_->mvpn().vrfIntfIdDel({vrf});
            ++counts_.removed;
        }
    }
}

} // namespace OvixCtl
