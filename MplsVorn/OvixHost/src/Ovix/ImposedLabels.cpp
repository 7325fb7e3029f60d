#include "Ovix/ImposedLabels.h"

#include <algorithm>

namespace Ovix {

ImposedLabels::ImposedLabels(const Lumo::UnboundedMplsLabelOperation& operation)
    : tc_(operation.tc), ttl_(operation.ttl) {
    const std::span<const std::uint8_t> packed = operation.packed();
    if (packed.size() <= inPlaceBytes) {
        std::copy(packed.begin(), packed.end(), inPlace_.begin());
        inPlaceSize_ = static_cast<std::uint16_t>(packed.size());
    } else {
        deep_.assign(packed.begin(), packed.end());
    }
}

Lumo::UnboundedMplsLabelOperation ImposedLabels::operation() const noexcept {
    Lumo::UnboundedMplsLabelOperation operation(
        deep_.empty() ? std::span<const std::uint8_t>(inPlace_.data(), inPlaceSize_)
                      : std::span<const std::uint8_t>(deep_));
    operation.tc = tc_;
    operation.ttl = ttl_;
    return operation;
}

} // namespace Ovix
