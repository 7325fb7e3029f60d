#pragma once

#include "Mpls/LfibStatus.h"
#include "State/ClearCounters.h"
#include "State/OvixLfibCounterCollection.h"
#include "Tessel/Entity.h"

namespace Ovix {

/// Removes a route's counter when the route leaves the LFIB it watches.
class MplsLfibStatusSm : public Tessel::Reactor {
  public:
    /// Subscribes at once. Without a table it does nothing.
    MplsLfibStatusSm(Ptr<const Mpls::LfibStatus> lfibStatus,
                     Ptr<Counter::OvixLfibCounterCollection> counterCollection);

    static Ptr<MplsLfibStatusSm>
    MplsLfibStatusSmIs(const Ptr<const Mpls::LfibStatus>& lfibStatus,
                       const Ptr<Counter::OvixLfibCounterCollection>& counterCollection);

    const Ptr<const Mpls::LfibStatus>& lfibStatus() const noexcept { return lfibStatus_; }
    const Ptr<Counter::OvixLfibCounterCollection>& counterCollection() const noexcept {
        return counterCollection_;
    }

    void handleLfibRoute(Mpls::RouteKey routeKey);

  protected:
    void react(std::uint64_t key) override { handleLfibRoute(Mpls::RouteKey::fromValue(key)); }

  private:
    Ptr<const Mpls::LfibStatus> lfibStatus_;
    Ptr<Counter::OvixLfibCounterCollection> counterCollection_;
};

/// Zeroes the label counters when a clear request arrives.
class ClearLfibCountersSm : public Counter::ClearCountersSmBase {
  public:
    ClearLfibCountersSm(Ptr<Counter::OvixLfibCounterCollection> counterCollection,
                        Ptr<Counter::ClearCountersRequests> requests);

    static Ptr<ClearLfibCountersSm>
    ClearLfibCountersSmIs(const Ptr<Counter::OvixLfibCounterCollection>& counterCollection,
                          const Ptr<Counter::ClearCountersRequests>& requests);

    const Ptr<Counter::OvixLfibCounterCollection>& counterCollection() const noexcept {
        return counterCollection_;
    }

    void clearAllCounters() override;

  private:
    Ptr<Counter::OvixLfibCounterCollection> counterCollection_;
};

Ptr<ClearLfibCountersSm>
clearLfibCountersSmFactory(const Ptr<Counter::OvixLfibCounterCollection>& counterCollection,
                           const Ptr<Counter::ClearCountersRequests>& requests);

} // namespace Ovix
