#include "Mpls/OvixMplsVia.h"

#include <cstring>

#include "Mpls/LabelStacks.h"

namespace Ovix {

bool OvixMplsVia::isEq(const OvixMplsVia& other) const noexcept {
    return labelAction == other.labelAction && trafficClass == other.trafficClass &&
           controlWord == other.controlWord && labelsInterned == other.labelsInterned &&
           payloadType == other.payloadType && ttlMode == other.ttlMode && labels == other.labels &&
           pushTtl == other.pushTtl && intfId == other.intfId && nexthop == other.nexthop &&
           vrfName == other.vrfName && fecIdHigh == other.fecIdHigh && fecIdLow == other.fecIdLow &&
           nexthopMtu == other.nexthopMtu && nexthopVlan == other.nexthopVlan;
}

Lumo::UnboundedMplsLabelOperation OvixMplsVia::labelOperation() const noexcept {
    std::span<const std::uint8_t> packed(
        reinterpret_cast<const std::uint8_t*>(labels.view().data()), labels.size());
    if (labelsInterned) {
        std::uint32_t number = 0;
        if (packed.size() == sizeof number) {
            std::memcpy(&number, packed.data(), sizeof number);
        }
        packed = Mpls::LabelStacks::find(number);
    }
    Lumo::UnboundedMplsLabelOperation operation(packed);
    if (trafficClass <= 7) {
        operation.tc = static_cast<std::uint8_t>(trafficClass);
    }
    if (pushTtl > 0 && pushTtl <= Lumo::UnboundedMplsLabelOperation::defaultTtl) {
        operation.ttl = static_cast<std::uint8_t>(pushTtl);
    }
    return operation;
}

bool OvixMplsVia::labelsIs(std::span<const std::uint8_t> packed) {
    constexpr std::size_t capacity = 100;
    labelsInterned = packed.size() > capacity;
    if (!labelsInterned) {
        labels = std::string_view(reinterpret_cast<const char*>(packed.data()), packed.size());
        return true;
    }
    const std::uint32_t number = Mpls::LabelStacks::intern(packed);
    if (number == 0) {
        labelsInterned = false;
        labels = std::string_view();
        return false;
    }
    labels = std::string_view(reinterpret_cast<const char*>(&number), sizeof number);
    return true;
}

} // namespace Ovix
