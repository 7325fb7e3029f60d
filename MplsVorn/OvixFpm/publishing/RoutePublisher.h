#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Published/TablePublisher.h"
#include "decoding/Routes.h"
#include "kernel/InterfaceLookup.h"

namespace OvixFpm {

/// Puts zebra's routes into the shared tables: routes of labels into the transit LFIB and the
/// hardware status, or, where the label leads into a VRF, into the decap LFIB; IP routes into the
/// table of IP routes. Changes are a batch, visible once committed.
class RoutePublisher {
  public:
    /// What the tables hold already counts as stale.
    RoutePublisher(Mpls::TablePublisher& tables, InterfaceLookup& interfaces);

    /// Why the change could not be made, and its route is not there now; empty when it was made.
    std::string apply(const RouteChange& change);
    /// Makes the changes visible, if there are any.
    void commit();

    /// Every route is stale until it is told of again.
    void markStale();
    /// Takes away, as part of the batch, what is still stale, and returns how many routes that
    /// were.
    std::size_t sweep();
    std::size_t staleRoutes() const noexcept { return staleLabels_.size() + stalePrefixes_.size(); }

  private:
    void route(const LabelRoute& route);
    void route(const PrefixRoute& route);
    void withdrawWhatIsNamedBy(const RouteChange& change);
    void withdraw(Lumo::MplsLabel label);
    void withdraw(const L3::RouteKey& key);
    std::vector<Mpls::WeightedRecord> viasOf(const NextHops& hops, bool ofLabel, bool uniform);
    const HostInterface& interfaceOf(const NextHop& hop);
    L3::VrfName vrfOf(std::uint32_t table);
    void mustBeForwardedBy(const NextHop& hop, const L3::VrfName& vrf);

    Mpls::TablePublisher* tables_;
    InterfaceLookup* interfaces_;
    std::set<Lumo::MplsLabel> labels_;
    std::set<Lumo::MplsLabel> staleLabels_;
    std::set<L3::RouteKey> stalePrefixes_;
};

} // namespace OvixFpm
