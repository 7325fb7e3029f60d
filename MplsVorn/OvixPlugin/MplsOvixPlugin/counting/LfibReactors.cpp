#include "counting/LfibReactors.h"

#include "Tables/Corruptions.h"

namespace Ovix {

MplsLfibStatusSm::MplsLfibStatusSm(Ptr<const Mpls::LfibStatus> lfibStatus,
                                   Ptr<Counter::OvixLfibCounterCollection> counterCollection)
    : Reactor(lfibStatus, Mpls::LfibStatus::routeAttr), lfibStatus_(std::move(lfibStatus)),
      counterCollection_(std::move(counterCollection)) {
    hasNotificationActiveIs(true);
}

Ptr<MplsLfibStatusSm> MplsLfibStatusSm::MplsLfibStatusSmIs(
    const Ptr<const Mpls::LfibStatus>& lfibStatus,
    const Ptr<Counter::OvixLfibCounterCollection>& counterCollection) {
    return Tessel::make<MplsLfibStatusSm>(lfibStatus, counterCollection);
}

void MplsLfibStatusSm::handleLfibRoute(Mpls::RouteKey routeKey) {
    const Mpls::LfibRoute route =
        readOrDefault(lfibStatus_, [&] { return lfibStatus_->route(routeKey); });
    if (route == Mpls::LfibRoute() && counterCollection_) {
        counterCollection_->counterCollectionDel(routeKey);
    }
}

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
