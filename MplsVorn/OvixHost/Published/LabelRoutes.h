#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "Mpls/LabelRoute.h"
#include "Tables/TableWriter.h"

namespace Mpls {

class TablePublisher;

/// The label routes of all owners, of whom each has its own. For each label the routes of one owner
/// are published, in whatever tables they are: of the owner with the most preferred one, or of two
/// the one with the lower number. Those of others wait, and come back when these are removed.
///
/// All are part of the publisher's batch.
class LabelRoutes {
  public:
    explicit LabelRoutes(TablePublisher& tables);
    LabelRoutes(const LabelRoutes&) = delete;
    LabelRoutes& operator=(const LabelRoutes&) = delete;
    ~LabelRoutes() = default;

    /// The route of its owner for its label in its table, in place of the one it has. Refused as by
    /// the tables' writers and transitRouteIs(); the batch is then to be discarded, or the route to
    /// be removed.
    Tessel::Result<void> routeIs(const LabelRoute& route);
    /// False when the owner has no such route. Throws std::length_error when there is no room to
    /// publish one that has waited.
    bool routeDel(TableId table, Lumo::MplsLabel label, RouteOwner owner);

    /// As this batch has it, published or waiting; unset when the owner has none, or it is damaged.
    std::optional<LabelRoute> route(TableId table, Lumo::MplsLabel label, RouteOwner owner) const;
    /// Who has a route of the label in the table: the one that is published first.
    std::vector<RouteOwner> owners(TableId table, Lumo::MplsLabel label) const;
    /// Whose routes of the label are published, if there are any.
    std::optional<RouteOwner> published(Lumo::MplsLabel label) const;

    struct Place {
        TableId table;
        Lumo::MplsLabel label;

        friend auto operator<=>(const Place&, const Place&) noexcept = default;
    };
    /// All routes of an owner.
    std::vector<Place> of(RouteOwner owner) const;

    struct WaitingCounts {
        std::size_t others; ///< routes of other owners that wait for the owner's
        std::size_t own;    ///< of the owner that wait for others'
    };
    WaitingCounts waitingFor(RouteOwner owner) const;

    /// Publishes what waits for routes that are not there any more, because they were damaged.
    void settleAll();
    /// Forgets the changes since the last commit, as the tables' writer does.
    void discard();

  private:
    /// What is compared: preference and owner.
    struct Rank {
        std::uint8_t preference = 0;
        RouteOwner owner{};

        friend auto operator<=>(const Rank&, const Rank&) noexcept = default;
    };
    struct Waiting {
        std::uint32_t place; ///< in the table of those that wait
        TableId table;
        Rank rank;
    };
    using AllWaiting = std::multimap<Lumo::MplsLabel, Waiting>;

    static Rank rankOf(RouteOwner owner, std::uint8_t preference) noexcept;
    std::optional<Rank> publishedRank(TableId table, Lumo::MplsLabel label) const;
    std::optional<Rank> publishedRank(Lumo::MplsLabel label) const;
    AllWaiting::const_iterator findWaiting(TableId table, Lumo::MplsLabel label,
                                           RouteOwner owner) const;
    Tessel::Result<LabelRoute> readPublished(TableId table, Lumo::MplsLabel label) const;
    Tessel::Result<LabelRoute> readWaiting(AllWaiting::const_iterator waiting) const;
    Tessel::Result<void> publish(const LabelRoute& route);
    void unpublish(TableId table, Lumo::MplsLabel label);
    Tessel::Result<void> wait(const LabelRoute& route);
    void endWaiting(AllWaiting::const_iterator waiting);
    Tessel::Result<void> settle(Lumo::MplsLabel label);
    Tessel::Result<void> demote(Lumo::MplsLabel label);
    Tessel::Result<void> promote(Lumo::MplsLabel label, RouteOwner owner);

    TablePublisher* tables_;
    AllWaiting waiting_;
    std::set<std::uint32_t> freePlaces_; ///< below the next one
    std::uint32_t nextPlace_ = 0;
};

} // namespace Mpls
