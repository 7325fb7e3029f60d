#include "Routing/Multicast/MvpnIntfStatus.h"

#include "Tessel/Exceptions.h"

namespace Routing::Multicast {

void MvpnIntfStatus::entryIs(Vrf::VrfIdMap::VrfId vrf, const MvpnVrfIntfId& entry) {
    const MvpnVrfIntfId* held = entries_.find(vrf.value);
    if (held == nullptr || *held != entry) {
        entries_[vrf.value] = entry;
        publish(vrfIntfIdAttr, vrf.value);
    }
}

void MvpnIntfStatus::vrfIntfIdDel(Vrf::VrfIdMap::VrfId vrf) {
    if (entries_.erase(vrf.value)) {
        publish(vrfIntfIdAttr, vrf.value);
    }
}

void MvpnIntfStatus::corrupt(Vrf::VrfIdMap::VrfId vrf, const MvpnVrfIntfId& found) const {
    throw Tessel::CorruptionDetected(name() + ": entry of vrf ID " + std::to_string(vrf.value) +
                                     " names vrf ID " + std::to_string(found.vrfId.value));
}

void MvpnIntfStatus::doCorruptionDetected(std::string_view message) const {
    ++corruptions_;
    lastCorruption_ = message;
}

} // namespace Routing::Multicast
