#include "Mpls/Hardware/Status.h"

#include "Tessel/Exceptions.h"

namespace Mpls::Hardware {

Ptr<const Adjacency> Status::adjacency(std::uint64_t key) const noexcept {
    const std::uint32_t* place = placeOfKey_.find(key);
    return place != nullptr ? places_[*place].adjacency : nullptr;
}

void Status::routeIs(const Route& route) {
    const RouteKey key = route.routeKey;
    const Target before = targetOf(key);
    if (before != absent && this->route(key).isEq(route)) {
        return;
    }
    const std::uint32_t place = placeFor(route.adjacencyKey);
    ++places_[place].routes;
    targetIs(key, (place << 1U) | static_cast<Target>(route.unprogrammed));
    if (before == absent) {
        ++routeCount_;
    } else {
        --places_[placeOf(before)].routes;
        leavePlace(placeOf(before));
    }
    publish(routeAttr, key.value());
}

void Status::routeDel(RouteKey key) {
    const Target before = targetOf(key);
    if (before == absent) {
        return;
    }
    targetIs(key, absent);
    --routeCount_;
    --places_[placeOf(before)].routes;
    leavePlace(placeOf(before));
    publish(routeAttr, key.value());
}

void Status::adjacencyIs(std::uint64_t key, Ptr<const Adjacency> adjacency) {
    places_[placeFor(key)].adjacency = std::move(adjacency);
    publish(adjacencyAttr, key);
}

void Status::adjacencyDel(std::uint64_t key) {
    const std::uint32_t* place = placeOfKey_.find(key);
    if (place == nullptr || !places_[*place].adjacency) {
        return;
    }
    places_[*place].adjacency.reset();
    leavePlace(*place);
    publish(adjacencyAttr, key);
}

void Status::targetIs(RouteKey key, Target target) {
    if (key.depth() != 1) {
        if (target == absent) {
            deepRoutes_.erase(key.value());
        } else {
            deepRoutes_[key.value()] = target;
        }
        return;
    }
    const std::uint32_t label = key.topLabel().value();
    std::unique_ptr<Page>& page = pages_[label / pageLabels];
    if (!page) {
        page = std::make_unique<Page>();
    }
    (*page)[label % pageLabels] = target;
}

/// The place of an adjacency that exists or that a route waits for.
std::uint32_t Status::placeFor(std::uint64_t adjacencyKey) {
    std::uint32_t& place = placeOfKey_[adjacencyKey];
    if (place != 0) {
        return place;
    }
    if (freePlaces_.empty()) {
        place = static_cast<std::uint32_t>(places_.size());
        places_.emplace_back();
    } else {
        place = freePlaces_.back();
        freePlaces_.pop_back();
    }
    places_[place].key = adjacencyKey;
    return place;
}

void Status::leavePlace(std::uint32_t place) {
    if (!places_[place].adjacency && places_[place].routes == 0) {
        placeOfKey_.erase(places_[place].key);
        freePlaces_.push_back(place);
    }
}

void Status::reserve(std::size_t routes) {
    places_.reserve(routes + 1);
    placeOfKey_.reserve(routes);
}

std::size_t Status::usedBytes() const noexcept {
    std::size_t bytes = placeOfKey_.memoryBytes() + deepRoutes_.memoryBytes() +
                        places_.capacity() * sizeof(Place) +
                        freePlaces_.capacity() * sizeof(std::uint32_t);
    for (const std::unique_ptr<Page>& page : pages_) {
        bytes += page ? sizeof(Page) : 0;
    }
    for (const Place& place : places_) {
        bytes += place.adjacency ? place.adjacency->memoryBytes() : 0;
    }
    return bytes;
}

} // namespace Mpls::Hardware
