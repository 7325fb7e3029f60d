#include "Mpls/OvixMplsVia.h"

namespace Ovix {

bool OvixMplsVia::isEq(const OvixMplsVia& other) const noexcept {
    return labelAction == other.labelAction && trafficClass == other.trafficClass &&
           controlWord == other.controlWord && entropy == other.entropy &&
           payloadType == other.payloadType && ttlMode == other.ttlMode && labels == other.labels &&
           pushTtl == other.pushTtl && intfId == other.intfId && nexthop == other.nexthop &&
           vrfName == other.vrfName && fecIdHigh == other.fecIdHigh && fecIdLow == other.fecIdLow &&
           nexthopMtu == other.nexthopMtu && nexthopVlan == other.nexthopVlan;
}

Lumo::UnboundedMplsLabelOperation OvixMplsVia::labelOperation() const noexcept {
    const std::span<const std::uint8_t> packed(
        reinterpret_cast<const std::uint8_t*>(labels.view().data()), labels.size());
    Lumo::UnboundedMplsLabelOperation operation(packed);
    if (TrafficClassField::isLegal(trafficClass)) {
        const TrafficClassField classes(trafficClass);
        operation.tc = classes.tc();
        operation.pushedTc = classes.pushedTc();
        operation.exposesTc = classes.uniform();
    }
    if (pushTtl > 0 && pushTtl <= Lumo::UnboundedMplsLabelOperation::defaultTtl) {
        operation.ttl = static_cast<std::uint8_t>(pushTtl);
    }
    operation.entropyBeneath = entropy ? 1 : 0;
    return operation;
}

bool OvixMplsVia::labelsIs(std::span<const std::uint8_t> packed) {
    const bool fits = packed.size() <= labels.maxSize;
    labels = fits ? std::string_view(reinterpret_cast<const char*>(packed.data()), packed.size())
                  : std::string_view();
    return fits;
}

} // namespace Ovix
