#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "Published/SharedPublisher.h"
#include "Tessel/Result.h"
#include "decoding/Routes.h"
#include "kernel/KernelLinks.h"
#include "publishing/MissingNextHops.h"

namespace OvixFpm {

/// Puts zebra's routes into the shared tables: routes of labels into the transit LFIB and the
/// hardware status, or, where the label leads into a VRF, into the decap LFIB; IP routes into the
/// table of IP routes. Changes are a batch, visible once committed.
class RoutePublisher {
  public:
    /// Routes that the tables hold already count as stale.
    RoutePublisher(Mpls::SharedPublisher& shared, InterfaceLookup& interfaces);

    /// To be called before a batch of changes; nothing happens when it has begun. Throws
    /// Tessel::TablesBusy when another writer keeps the tables, and what opening them throws.
    void begin();
    /// Whether a batch has found other tables in the place of those before it, since this was asked
    /// last: zebra's routes are missing there.
    bool wereReplaced() noexcept { return std::exchange(wereReplaced_, false); }
    /// The tables of the batch.
    Mpls::TablePublisher& tables() noexcept { return *tables_; }
    /// Whether the tables' name still leads to the tables of the last batch.
    bool areNamed() const { return shared_->areNamed(); }

    /// Refuses a route that cannot be published; an earlier one for its destination is then
    /// removed.
    Tessel::Result<void> apply(const RouteChange& change);
    /// From now on routes are completed that zebra announces without their next hops.
    void missingAreAsked() noexcept { asksMissing_ = true; }
    const MissingNextHops& missing() const noexcept { return missing_; }
    /// The same as apply() for a route that is missing next hops, which zebra shows as these.
    Tessel::Result<void> nextHopsAre(const L3::RouteKey& key, const std::vector<NextHop>& shown);
    /// Unset when the routing table is not a VRF's. Throws std::system_error.
    std::optional<L3::VrfName> vrfOf(std::uint32_t table);
    /// Makes the changes visible, if there are any, and ends the batch.
    void commit();

    /// Takes back the changes since the last commit, none of them zebra's, and ends the batch.
    void discard();
    /// The same of zebra's changes. Only a new connection, over which zebra announces everything,
    /// makes the tables right again.
    void abandon();

    /// Every route is stale until it is announced again.
    void markStale();
    /// Removes the routes that are still stale, as part of the batch, and returns their number.
    std::size_t sweep();
    std::size_t staleRoutes() const noexcept { return staleLabels_.size() + stalePrefixes_.size(); }

  private:
    void publish(Lumo::MplsLabel label, const Route& route);
    void publish(const L3::RouteKey& key, const Route& route);
    void withdraw(const Destination& destination);
    std::vector<Mpls::WeightedVia> viasOf(const std::vector<NextHop>& hops, bool ofLabel,
                                          Mpls::TtlMode ttl);
    const KernelLink& interfaceOf(const NextHop& hop);
    void publishKnown(const L3::RouteKey& key, const Route& route);
    void checkIsForwarded(const NextHop& hop, const L3::Route& route);

    void takeOver();

    Mpls::SharedPublisher* shared_;
    Mpls::TablePublisher* tables_ = nullptr; ///< of `shared_`, as they are in this batch
    InterfaceLookup* interfaces_;
    bool wereReplaced_ = false;
    std::set<Lumo::MplsLabel> labels_;
    std::set<Lumo::MplsLabel> staleLabels_;
    std::set<L3::RouteKey> stalePrefixes_;
    MissingNextHops missing_;
    bool asksMissing_ = false;
};

} // namespace OvixFpm
