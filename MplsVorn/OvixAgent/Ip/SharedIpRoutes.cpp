#include "Ip/SharedIpRoutes.h"

#include <algorithm>

#include "Tessel/Exceptions.h"

namespace OvixAgent {

namespace {

IpPrefix prefixOf(const L3::RouteKey& key) {
    IpPrefix prefix;
    const bool isIpv4 = key.prefix.family() == Lumo::IpFamily::ipv4;
    prefix.address.family = isIpv4 ? IpAddress::Family::ipv4 : IpAddress::Family::ipv6;
    std::copy_n(key.prefix.bytes().begin(),
                isIpv4 ? Lumo::IpGenAddr::ipv4Size : Lumo::IpGenAddr::ipv6Size,
                prefix.address.bytes.begin());
    prefix.length = key.length;
    return prefix;
}

Ptr<Ovix::RewriteImpl> pushOf(const Ovix::OvixMplsVia& via) {
    if (via.labels.empty()) {
        return nullptr;
    }
    const std::string_view packed = via.labels.view();
    const std::span bytes(reinterpret_cast<const std::uint8_t*>(packed.data()), packed.size());
    return pushRewrite(Lumo::UnboundedMplsLabelOperation(bytes), via.ttl());
}

} // namespace

SharedIpRoutes::SharedIpRoutes(Ptr<const Tessel::TableReader> tables, ForwardingTables& forwarding)
    : forwarding_(&forwarding), routes_(tables), tables_(std::move(tables)),
      changes_(Tessel::TableChanges::fromNothing(tables_, routes_.table())),
      generation_(tables_->generation()) {}

void SharedIpRoutes::startOver() {
    taken_.clear();
    placeOf_.clear();
    changes_ = Tessel::TableChanges::fromNothing(tables_, routes_.table());
}

bool SharedIpRoutes::refresh() {
    if (tables_->generation() != generation_) [[unlikely]] {
        generation_ = tables_->generation();
        changes_.restart();
    }
    if (changes_.done()) [[likely]] {
        return true;
    }
    try {
        return changes_.look(1, [this](std::uint32_t place) {
            drop(place);
            take(place);
        });
    } catch (const Tessel::CorruptionDetected&) {
        return false; // that page's routes stay as they were
    } catch (const Tessel::SnapshotLost&) {
        return false; // there is a newer generation to go over to
    }
}

// A route may have been taken from another place meanwhile: routes move when many change at once.
void SharedIpRoutes::drop(std::uint32_t place) {
    const auto taken = taken_.find(place);
    if (taken == taken_.end()) {
        return;
    }
    const auto last = placeOf_.find(taken->second);
    if (last != placeOf_.end() && last->second == place) {
        forwarding_->vrfs->fibIs(taken->second.vrf).routeDel(prefixOf(taken->second.prefix));
        placeOf_.erase(last);
    }
    taken_.erase(taken);
}

void SharedIpRoutes::take(std::uint32_t place) {
    std::optional<L3::Route> route;
    try {
        route = routes_.at(place);
    } catch (const Tessel::CorruptionDetected&) {
        return;
    }
    if (!route) {
        return;
    }
    const Target target{std::string(route->vrf.view()),
                        {L3::RouteKey::mainTable, route->key.prefix, route->key.length}};
    if (isOwnAddress(target)) {
        return;
    }
    forwarding_->vrfs->fibIs(target.vrf).routeIs(prefixOf(target.prefix), routeOf(*route));
    taken_[place] = target;
    placeOf_[target] = place;
}

/// The device's own addresses are not routed elsewhere.
bool SharedIpRoutes::isOwnAddress(const Target& target) const {
    const L3::RouteKey& key = target.prefix;
    const std::uint8_t whole = key.prefix.family() == Lumo::IpFamily::ipv4 ? 32 : 128;
    const Fib* fib = forwarding_->vrfs->fib(target.vrf);
    const IpRoute* own = fib != nullptr ? fib->find(key.prefix) : nullptr;
    return key.length == whole && own != nullptr && own->isLocal() && !placeOf_.contains(target);
}

IpRoute SharedIpRoutes::routeOf(const L3::Route& route) {
    if (route.kind != L3::Route::Kind::forward) {
        return route.kind == L3::Route::Kind::local ? IpRoute::local() : IpRoute::drop();
    }
    std::vector<IpRouteVia> vias;
    const auto entries = route.ways->entries(false);
    for (std::uint32_t i = 0; i < entries.size(); ++i) {
        const Ovix::OvixMplsVia& via = route.ways->via(false, i);
        const Port* port = forwarding_->ports.byIntfId(via.intfId);
        if (port == nullptr) {
            continue;
        }
        IpRouteVia& made = vias.emplace_back();
        made.port = forwarding_->ports.indexOf(*port);
        made.nexthop = via.nexthop;
        made.onLink = via.nexthop.empty();
        made.weight = std::max<std::uint32_t>(1, entries[i].weight);
        made.push = pushOf(via);
    }
    // What is routed to an interface that is no port, such as the loopback's, is for the device.
    return vias.empty() ? IpRoute::local() : IpRoute::forward(std::move(vias));
}

} // namespace OvixAgent
