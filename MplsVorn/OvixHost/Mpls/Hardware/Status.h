#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "Mpls/Hardware/Adjacency.h"
#include "Mpls/RouteKey.h"
#include "Mpls/TableDirectory.h"
#include "Tables/Corruptions.h"
#include "Tables/TableReader.h"
#include "Tessel/Entity.h"

namespace Mpls::Hardware {

/// A label route as the platform has programmed it. Default: the route of the empty label stack,
/// which means absence.
struct Route {
    RouteKey routeKey;
    std::uint64_t adjacencyKey = 0; ///< 0 to 2^20 - 1
    bool unprogrammed = false;      ///< the platform has not (yet) taken the route
    /// Programmed along with the label's route in the transit LFIB, and removed with it.
    bool derived = false;

    bool isEq(const Route& other) const noexcept { return *this == other; }
    friend bool operator==(const Route&, const Route&) noexcept = default;

    /// The route as its label's entry carries it.
    ///
    ///     22      21         2 1            0
    ///     +-------+-----------+------------+-+
    ///     |derived| adjacency |unprogrammed|1|
    ///     +-------+-----------+------------+-+
    constexpr std::uint32_t packed() const noexcept {
        return static_cast<std::uint32_t>(derived) << 22U |
               static_cast<std::uint32_t>(adjacencyKey << 2U) |
               (static_cast<std::uint32_t>(unprogrammed) << 1U) | 1U;
    }
    static constexpr Route unpacked(RouteKey key, std::uint32_t packed) noexcept {
        return {key, packed >> 2U & Tessel::TableLayout::maxKey, (packed & 2U) != 0,
                (packed & 1U << 22U) != 0};
    }
};

/// The MPLS routes that the platform has programmed and the adjacencies they point at: the reading
/// side. Both are found by index. Damage throws Tessel::CorruptionDetected.
class Status : public Tessel::Entity, public Tessel::CorruptionHook {
  public:
    static constexpr std::string_view entityTypeName = "Mpls::Hardware::Status";
    enum Attr : Tessel::AttrId { routeAttr = 0, adjacencyAttr = 1 };

    explicit Status(Ptr<const Tessel::TableReader> tables);
    std::string_view typeName() const noexcept override { return entityTypeName; }

    /// The default route when there is none for the key.
    Route route(RouteKey key) const {
        const Recent& recent = recentOf(key);
        return holds(recent, key) ? recent.route : readRoute(key);
    }
    /// A copy of the route's adjacency; empty when there is none. Good until the next call here.
    const Ptr<const Adjacency>& adjacency(const Route& route) const {
        Recent& recent = recentOf(route.routeKey);
        return holds(recent, route.routeKey) && recent.adjacencyRead ? recent.adjacency
                                                                     : readAdjacency(route);
    }
    /// The same by key.
    Ptr<const Adjacency> adjacency(std::uint64_t key) const;

    std::size_t routes() const noexcept { return tables_->entries(routes_); }
    std::size_t adjacencies() const noexcept { return tables_->entries(adjacencies_); }
    /// Visits the labels that have a route.
    template <typename Visitor>
    void forEachLabel(Visitor&& visitor) const {
        tables_->forEach(routes_, [&](std::uint32_t label, Tessel::TableRef) { visitor(label); });
    }

    /// Visits the keys that have an adjacency.
    template <typename Visitor>
    void forEachAdjacency(Visitor&& visitor) const {
        tables_->forEach(adjacencies_, [&](std::uint32_t key, Tessel::TableRef) { visitor(key); });
    }

  private:
    /// A route met not long ago. Within a generation nothing changes, so it need not be read again.
    struct Recent {
        std::uint64_t held = 0; ///< what the reader held then
        Route route;
        Ptr<const Adjacency> adjacency;
        bool adjacencyRead = false;
    };
    static constexpr std::size_t recents = 2048;

    Recent& recentOf(RouteKey key) const noexcept { return recent_[key.value() % recents]; }
    bool holds(const Recent& recent, RouteKey key) const noexcept {
        return recent.route.routeKey == key && recent.held == tables_->held();
    }
    Route readRoute(RouteKey key) const;
    const Ptr<const Adjacency>& readAdjacency(const Route& route) const;

    Ptr<const Tessel::TableReader> tables_;
    std::size_t routes_;
    std::size_t adjacencies_;
    mutable std::array<Recent, recents> recent_;
};

} // namespace Mpls::Hardware
