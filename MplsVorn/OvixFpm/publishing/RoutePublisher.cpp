#include "publishing/RoutePublisher.h"

#include <cassert>
#include <stdexcept>
#include <string>

namespace OvixFpm {

using Mpls::TableId;

namespace {

/// How long messages of zebra wait for another writer, before the program looks at what else has
/// come.
constexpr std::chrono::milliseconds turnWait{50};

constexpr Mpls::RouteOwner owner = Mpls::RouteOwner::fpm;

template <class T>
T valueOrThrow(Tessel::Result<T> result) {
    if (!result) {
        throw std::runtime_error(result.refused().what);
    }
    return std::move(result).value();
}

void check(const Tessel::Result<void>& done) {
    if (!done) {
        throw std::runtime_error(done.refused().what);
    }
}

/// Of a label route each hop swaps or pops, of an IP route it pushes or forwards.
Tessel::Result<Mpls::Via> viaOf(const std::vector<Lumo::MplsLabel>& labels, bool ofLabel,
                                const Mpls::ViaOptions& options) {
    using Mpls::Via;
    if (labels.empty()) {
        return ofLabel ? Via::pop(options) : Via::forward(options);
    }
    return ofLabel ? Via::swap(labels, options) : Via::push(labels, options);
}

L3::Route::Kind kindOf(RouteEnd end) noexcept {
    switch (end) {
    case RouteEnd::local:
        return L3::Route::Kind::local;
    case RouteEnd::unreachable:
        return L3::Route::Kind::unreachable;
    case RouteEnd::prohibit:
        return L3::Route::Kind::prohibit;
    case RouteEnd::blackhole:
        break;
    }
    return L3::Route::Kind::drop;
}

} // namespace

RoutePublisher::RoutePublisher(Mpls::SharedPublisher& shared, InterfaceLookup& interfaces)
    : shared_(&shared), interfaces_(&interfaces) {
    takeOver();
}

void RoutePublisher::begin() {
    if (shared_->hasBegun()) {
        return;
    }
    const auto since = shared_->begin(turnWait);
    tables_ = &shared_->tables();
    if (since == Mpls::SharedPublisher::Since::replaced) {
        takeOver();
        wereReplaced_ = true;
    }
}

void RoutePublisher::takeOver() {
    tables_ = &shared_->tables();
    labels_.clear();
    for (const Mpls::LabelRoutes::Place& place : tables_->labelRoutes().of(owner)) {
        labels_.insert(place.label);
    }
    markStale();
}

Tessel::Result<void> RoutePublisher::apply(const RouteChange& change) {
    try {
        if (change.route) {
            std::visit([&](const auto& key) { publish(key, *change.route); }, change.to);
        } else {
            withdraw(change.to);
        }
        return {};
    } catch (const std::exception& error) {
        std::string reason = error.what();
        try {
            // The old route would contradict the new one.
            withdraw(change.to);
        } catch (const std::exception& stuck) {
            reason += std::string("; and the old route stays: ") + stuck.what();
        }
        return Tessel::Refused{reason};
    }
}

void RoutePublisher::withdraw(const Destination& destination) {
    if (const auto* key = std::get_if<L3::RouteKey>(&destination)) {
        tables_->ipRoutes().routeDel(*key);
        stalePrefixes_.erase(*key);
        missing_.forget(*key);
        return;
    }
    const auto label = std::get<Lumo::MplsLabel>(destination);
    tables_->labelRoutes().routeDel(TableId::transitLfib, label, owner);
    tables_->labelRoutes().routeDel(TableId::decapLfib, label, owner);
    labels_.erase(label);
    staleLabels_.erase(label);
}

void RoutePublisher::publish(Lumo::MplsLabel label, const Route& route) {
    assert(!route.nextHops.empty() && !route.end);
    Mpls::LabelRoute published;
    published.label = label;
    published.owner = owner;
    const NextHop& first = route.nextHops.front();
    if (route.nextHops.size() == 1 && first.isInterfaceOnly() && interfaceOf(first).isVrf()) {
        published.table = TableId::decapLfib;
        published.viaType = Mpls::LfibViaType::ipLookup;
        published.vias = {
            {valueOrThrow(Mpls::Via::popAndLookUp(std::string_view(interfaceOf(first).name),
                                                  Mpls::PayloadType::automatic)),
             1}};
    } else {
        published.vias = viasOf(route.nextHops, true,
                                route.ttlPropagated.value_or(true) ? Mpls::TtlMode::uniform
                                                                   : Mpls::TtlMode::pipe);
    }
    Mpls::LabelRoutes& routes = tables_->labelRoutes();
    check(routes.routeIs(published));
    routes.routeDel(published.table == TableId::transitLfib ? TableId::decapLfib
                                                            : TableId::transitLfib,
                    label, owner);
    labels_.insert(label);
    staleLabels_.erase(label);
}

Tessel::Result<void> RoutePublisher::nextHopsAre(const L3::RouteKey& key,
                                                 const std::vector<NextHop>& shown) {
    try {
        if (const auto route = missing_.shown(key, shown)) {
            publishKnown(key, *route);
        }
        return {};
    } catch (const std::exception& error) {
        return Tessel::Refused{error.what()};
    }
}

void RoutePublisher::publish(const L3::RouteKey& key, const Route& route) {
    publishKnown(key, asksMissing_ ? missing_.completed(key, route) : route);
}

void RoutePublisher::publishKnown(const L3::RouteKey& key, const Route& route) {
    const auto vrf = vrfOf(key.table);
    if (!vrf) {
        throw std::runtime_error("routing table " + std::to_string(key.table) + " is not a VRF's");
    }
    L3::Route published;
    published.key = key;
    published.vrf = *vrf;
    if (route.end) {
        published.kind = kindOf(*route.end);
    } else {
        assert(!route.nextHops.empty());
        for (const NextHop& hop : route.nextHops) {
            checkIsForwarded(hop, published);
        }
        published.kind = L3::Route::Kind::forward;
        published.vias = viasOf(route.nextHops, false, Mpls::TtlMode::uniform);
    }
    tables_->ipRoutes().routeIs(published);
    stalePrefixes_.erase(key);
}

const KernelLink& RoutePublisher::interfaceOf(const NextHop& hop) {
    const auto& found = interfaces_->find(hop.interface);
    if (!found) {
        throw std::runtime_error("there is no interface " + std::to_string(hop.interface));
    }
    return *found;
}

/// Throws for a next hop that packets cannot be sent to.
void RoutePublisher::checkIsForwarded(const NextHop& hop, const L3::Route& route) {
    const bool isIpv6 = route.key.prefix.family() == Lumo::IpFamily::ipv6;
    // zebra leaves out the IPv4 next hop of an IPv6 route over an IPv4 core (RFC 4659, RFC 4798).
    // Unless it is known otherwise, the labels are for the only neighbour on the link.
    if (!hop.labels.empty() && !hop.hasGateway() && !isIpv6) {
        throw std::invalid_argument("labels without a next hop to push them for");
    }
    if (isIpv6 && hop.gateway.family() == Lumo::IpFamily::ipv4 && hop.labels.empty()) {
        throw std::invalid_argument("an IPv6 route to an IPv4 next hop without labels (RFC 4798)");
    }
    // In its own VRF the device means this host.
    const KernelLink& interface = interfaceOf(hop);
    if (interface.isVrf() && interface.name != route.vrf.view()) {
        throw std::invalid_argument("a route into another VRF, " + interface.name +
                                    ", is not supported");
    }
}

std::optional<L3::VrfName> RoutePublisher::vrfOf(std::uint32_t table) {
    if (table == L3::RouteKey::mainTable) {
        return L3::VrfName();
    }
    const auto found = interfaces_->vrfOfTable(table);
    return found ? std::optional(L3::VrfName(std::string_view(*found))) : std::nullopt;
}

std::vector<Mpls::WeightedVia> RoutePublisher::viasOf(const std::vector<NextHop>& hops,
                                                      bool ofLabel, Mpls::TtlMode ttl) {
    assert(!hops.empty());
    std::vector<Mpls::WeightedVia> vias;
    for (const NextHop& hop : hops) {
        assert(hop.weight >= 1);
        Mpls::ViaOptions options;
        options.intf = tables_->interfaces().intfId(interfaceOf(hop).name);
        options.nexthop = hop.gateway;
        options.ttl = ttl;
        vias.push_back({valueOrThrow(viaOf(hop.labels, ofLabel, options)), hop.weight});
    }
    return vias;
}

void RoutePublisher::commit() {
    tables_->commit();
    if (shared_->hasBegun()) {
        shared_->end();
    }
    interfaces_->forget();
}

void RoutePublisher::discard() {
    tables_->discard();
    if (shared_->hasBegun()) {
        shared_->end();
    }
}

void RoutePublisher::abandon() {
    tables_->discard();
    takeOver();
    discard();
}

void RoutePublisher::markStale() {
    missing_.waitForNone();
    staleLabels_ = labels_;
    const auto keys = tables_->ipRoutes().keys();
    stalePrefixes_ = {keys.begin(), keys.end()};
}

std::size_t RoutePublisher::sweep() {
    const std::size_t swept = staleRoutes();
    while (!stalePrefixes_.empty()) {
        withdraw(L3::RouteKey(*stalePrefixes_.begin()));
    }
    while (!staleLabels_.empty()) {
        withdraw(*staleLabels_.begin());
    }
    return swept;
}

} // namespace OvixFpm
