#pragma once

#include <cstdint>

#include "Mpls/Hardware/Adjacency.h"
#include "Mpls/RouteKey.h"
#include "Tessel/Entity.h"
#include "Tessel/FlatMap.h"

namespace Mpls::Hardware {

/// A label route as the platform has programmed it. Default: the route of the empty label stack,
/// which stands for absence.
struct Route {
    RouteKey routeKey;
    std::uint64_t adjacencyKey = 0;
    bool unprogrammed = false; ///< the platform has not (yet) taken the route

    bool isEq(const Route& other) const noexcept {
        return routeKey == other.routeKey && adjacencyKey == other.adjacencyKey &&
               unprogrammed == other.unprogrammed;
    }
};

/// The MPLS routes that the platform has programmed and the adjacencies they point at.
class Status : public Tessel::Entity {
  public:
    static constexpr std::string_view entityTypeName = "Mpls::Hardware::Status";
    enum Attr : Tessel::AttrId { routeAttr = 0, adjacencyAttr = 1 };

    Status() : Entity("status") {}
    std::string_view typeName() const noexcept override { return entityTypeName; }

    /// The default route when there is none for the key.
    Route route(RouteKey key) const noexcept {
        const Target* target = routes_.find(key.value());
        return target != nullptr ? Route{key, target->adjacencyKey, target->unprogrammed} : Route{};
    }
    /// Empty when there is none.
    Ptr<const Adjacency> adjacency(std::uint64_t key) const noexcept {
        const Ptr<const Adjacency>* found = adjacencies_.find(key);
        return found != nullptr ? *found : nullptr;
    }

    void routeIs(const Route& route);
    void routeDel(RouteKey key);
    /// The all-ones key is reserved: Tessel::RangeError.
    void adjacencyIs(std::uint64_t key, Ptr<const Adjacency> adjacency);
    void adjacencyDel(std::uint64_t key);

    void reserve(std::size_t routes);
    std::size_t routes() const noexcept { return routes_.size(); }
    std::size_t usedBytes() const noexcept;

    /// Loads the cache line that a route lookup will read.
    void prefetch(RouteKey key) const noexcept { routes_.prefetch(key.value()); }

  private:
    struct Target {
        std::uint64_t adjacencyKey = 0;
        bool unprogrammed = false;
    };

    Tessel::FlatMap<Target> routes_;
    Tessel::FlatMap<Ptr<const Adjacency>> adjacencies_;
};

} // namespace Mpls::Hardware
