#include "Mpls/Hardware/Status.h"

namespace Mpls::Hardware {

void Status::routeIs(const Route& route) {
    if (this->route(route.routeKey).isEq(route)) {
        return;
    }
    routes_[route.routeKey.value()] = {route.adjacencyKey, route.unprogrammed};
    publish(routeAttr, route.routeKey.value());
}

void Status::routeDel(RouteKey key) {
    if (routes_.erase(key.value())) {
        publish(routeAttr, key.value());
    }
}

void Status::adjacencyIs(std::uint64_t key, Ptr<const Adjacency> adjacency) {
    adjacencies_[key] = std::move(adjacency);
    publish(adjacencyAttr, key);
}

void Status::adjacencyDel(std::uint64_t key) {
    if (adjacencies_.erase(key)) {
        publish(adjacencyAttr, key);
    }
}

void Status::reserve(std::size_t routes) {
    routes_.reserve(routes);
    adjacencies_.reserve(routes);
}

std::size_t Status::usedBytes() const noexcept {
    std::size_t bytes = routes_.memoryBytes() + adjacencies_.memoryBytes();
    adjacencies_.forEach([&](std::uint64_t, const Ptr<const Adjacency>& adjacency) {
        bytes += adjacency->memoryBytes();
    });
    return bytes;
}

} // namespace Mpls::Hardware
