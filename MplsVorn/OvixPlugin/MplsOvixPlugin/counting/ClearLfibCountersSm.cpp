#include "counting/ClearLfibCountersSm.h"

namespace Ovix {

ClearLfibCountersSm::ClearLfibCountersSm(Ptr<Counter::OvixLfibCounterCollection> counterCollection,
                                         Ptr<Counter::ClearCountersRequests> requests)
    : ClearCountersSmBase(std::move(requests)), counterCollection_(std::move(counterCollection)) {}

Ptr<ClearLfibCountersSm> ClearLfibCountersSm::ClearLfibCountersSmIs(
    const Ptr<Counter::OvixLfibCounterCollection>& counterCollection,
    const Ptr<Counter::ClearCountersRequests>& requests) {
    return Tessel::make<ClearLfibCountersSm>(counterCollection, requests);
}

Ptr<ClearLfibCountersSm>
clearLfibCountersSmFactory(const Ptr<Counter::OvixLfibCounterCollection>& counterCollection,
                           const Ptr<Counter::ClearCountersRequests>& requests) {
    return ClearLfibCountersSm::ClearLfibCountersSmIs(counterCollection, requests);
}

void ClearLfibCountersSm::clearAllCounters() {
    if (!counterCollection_) {
        return;
    }
    counterCollection_->forEach([this](Mpls::RouteKey key, const Counter::PktCounter&) {
        if (Counter::PktCounter* counter = counterCollection_->counter(key)) {
            counter->clearCounter();
        }
    });
}

} // namespace Ovix
