#pragma once

#include <cstdint>
#include <set>
#include <vector>

#include "Published/TablePublisher.h"
#include "Tessel/Result.h"
#include "decoding/Routes.h"
#include "kernel/KernelLinks.h"

namespace OvixFpm {

/// Puts zebra's routes into the shared tables: routes of labels into the transit LFIB and the
/// hardware status, or, where the label leads into a VRF, into the decap LFIB; IP routes into the
/// table of IP routes. Changes are a batch, visible once committed.
class RoutePublisher {
  public:
    /// Routes that the tables hold already count as stale.
    RoutePublisher(Mpls::TablePublisher& tables, InterfaceLookup& interfaces);

    /// Refuses a route that cannot be published; an earlier one for its destination is then
    /// removed.
    Tessel::Result<void> apply(const RouteChange& change);
    /// Makes the changes visible, if there are any.
    void commit();

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
    L3::VrfName vrfOf(std::uint32_t table);
    void checkIsForwarded(const NextHop& hop, const L3::Route& route);

    Mpls::TablePublisher* tables_;
    InterfaceLookup* interfaces_;
    std::set<Lumo::MplsLabel> labels_;
    std::set<Lumo::MplsLabel> staleLabels_;
    std::set<L3::RouteKey> stalePrefixes_;
};

} // namespace OvixFpm
