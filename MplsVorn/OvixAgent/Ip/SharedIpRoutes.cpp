#include "Ip/SharedIpRoutes.h"

#include "Tessel/Exceptions.h"

namespace OvixAgent {

SharedIpRoutes::SharedIpRoutes(Ptr<const Tessel::TableReader> tables, const PortTable& ports,
                               Ptr<VrfRoot> vrfs)
    : ports_(&ports), vrfs_(std::move(vrfs)), routes_(tables), tables_(std::move(tables)),
      changes_(Tessel::TableChanges::fromNothing(tables_, routes_.table())),
      held_(tables_->held()) {}

void SharedIpRoutes::startOver(Ptr<VrfRoot> vrfs) {
    vrfs_ = std::move(vrfs);
    taken_.clear();
    placeOf_.clear();
    changes_ = Tessel::TableChanges::fromNothing(tables_, routes_.table());
}

void SharedIpRoutes::readerIs(Ptr<const Tessel::TableReader> tables) {
    routes_ = L3::Routes(tables);
    changes_.readerIs(tables);
    held_ = tables->held();
    tables_ = std::move(tables);
}

bool SharedIpRoutes::refresh() {
    if (tables_->held() != held_) [[unlikely]] {
        held_ = tables_->held();
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
        vrfs_->fibIs(taken->second.vrf).routeDel(taken->second.prefix.range());
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
    vrfs_->fibIs(target.vrf).routeIs(target.prefix.range(), resolve(*route, *ports_, nullptr));
    taken_[place] = target;
    placeOf_[target] = place;
}

/// Shared routes do not take over the device's own addresses.
bool SharedIpRoutes::isOwnAddress(const Target& target) const {
    const L3::RouteKey& key = target.prefix;
    const Fib* fib = vrfs_->fib(target.vrf);
    const IpRoute* own = fib != nullptr ? fib->find(key.prefix) : nullptr;
    return key.length == key.prefix.bits() && own != nullptr && own->isLocal() &&
           !placeOf_.contains(target);
}

} // namespace OvixAgent
