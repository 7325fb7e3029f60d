#include "State/ClearCounters.h"

namespace Counter {

void ClearCountersSmBase::hasNotificationActiveIs(bool active) {
    active_ = active;
    if (!requests_) {
        return;
    }
    if (active) {
        requests_->subscribe(*this);
    } else {
        requests_->unsubscribe(*this);
    }
}

void ClearCountersSmBase::attributeChanged(const Tessel::Entity&, Tessel::AttrId attribute,
                                           std::uint64_t) {
    if (!zombie_ && attribute == ClearCountersRequests::requestAttr) {
        clearAllCounters();
    }
}

} // namespace Counter
