#pragma once

#include "State/ClearCounters.h"
#include "State/OvixLfibCounterCollection.h"

namespace Ovix {

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
