#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

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
    std::uint32_t place = 0;   ///< where Status keeps the adjacency; not part of the route's value

    bool isEq(const Route& other) const noexcept {
        return routeKey == other.routeKey && adjacencyKey == other.adjacencyKey &&
               unprogrammed == other.unprogrammed;
    }
};

/// The MPLS routes that the platform has programmed and the adjacencies they point at. A label
/// indexes its route and a route its adjacency's place, so that finding both hashes nothing.
class Status : public Tessel::Entity {
  public:
    static constexpr std::string_view entityTypeName = "Mpls::Hardware::Status";
    enum Attr : Tessel::AttrId { routeAttr = 0, adjacencyAttr = 1 };

    Status() : Entity("status") {}
    std::string_view typeName() const noexcept override { return entityTypeName; }

    /// The default route when there is none for the key.
    Route route(RouteKey key) const noexcept {
        const Target target = targetOf(key);
        return target != absent ? Route{key, places_[placeOf(target)].key, isUnprogrammed(target),
                                        placeOf(target)}
                                : Route{};
    }
    /// Empty when there is none.
    Ptr<const Adjacency> adjacency(std::uint64_t key) const noexcept;
    /// The same for the route's adjacency, at less cost. The route must have been read from here
    /// since the last change.
    const Ptr<const Adjacency>& adjacency(const Route& route) const noexcept {
        return places_[route.place].adjacency;
    }

    /// The all-ones key is reserved: Tessel::RangeError.
    void routeIs(const Route& route);
    void routeDel(RouteKey key);
    /// The all-ones key is reserved: Tessel::RangeError.
    void adjacencyIs(std::uint64_t key, Ptr<const Adjacency> adjacency);
    void adjacencyDel(std::uint64_t key);

    void reserve(std::size_t routes);
    std::size_t routes() const noexcept { return routeCount_; }
    std::size_t usedBytes() const noexcept;

  private:
    /// (place << 1) + 1 for unprogrammed, counted from 2; 0 for no route.
    using Target = std::uint32_t;
    static constexpr Target absent = 0;
    static constexpr std::size_t pageLabels = 1024;
    static constexpr std::size_t pages = (std::size_t{Lumo::MplsLabel::max} + 1) / pageLabels;
    using Page = std::array<Target, pageLabels>;

    struct Place {
        Ptr<const Adjacency> adjacency;
        std::uint64_t key = 0;
        std::uint32_t routes = 0; ///< that point here
    };

    static constexpr std::uint32_t placeOf(Target target) noexcept { return target >> 1U; }
    static constexpr bool isUnprogrammed(Target target) noexcept { return (target & 1U) != 0; }

    Target targetOf(RouteKey key) const noexcept {
        if (key.depth() != 1) [[unlikely]] {
            const Target* target = deepRoutes_.find(key.value());
            return target != nullptr ? *target : absent;
        }
        const std::uint32_t label = key.topLabel().value();
        const Page* page = pages_[label / pageLabels].get();
        return page != nullptr ? (*page)[label % pageLabels] : absent;
    }
    void targetIs(RouteKey key, Target target);
    std::uint32_t placeFor(std::uint64_t adjacencyKey);
    void leavePlace(std::uint32_t place);

    std::array<std::unique_ptr<Page>, pages> pages_;
    Tessel::FlatMap<Target> deepRoutes_; ///< of label stacks of more than one label
    std::size_t routeCount_ = 0;
    std::vector<Place> places_ = std::vector<Place>(1); ///< the first one stands for none
    std::vector<std::uint32_t> freePlaces_;
    Tessel::FlatMap<std::uint32_t> placeOfKey_;
};

} // namespace Mpls::Hardware
