#include "Ovix/rewrite/ImposedLabels.h"

#include <stdexcept>

#include "Mpls/LabelStacks.h"

namespace Ovix {

std::span<const std::uint8_t> ImposedLabels::lasting(std::span<const std::uint8_t> packed) {
    if (packed.size() <= inPlaceBytes) {
        return packed;
    }
    const std::uint32_t number = Mpls::LabelStacks::intern(packed);
    if (number == 0) {
        throw std::length_error("more than 65536 different deep label stacks");
    }
    return Mpls::LabelStacks::find(number);
}

ImposedLabels::ImposedLabels(const Lumo::UnboundedMplsLabelOperation& operation) noexcept
    : tc_(operation.tc), ttl_(operation.ttl) {
    const std::span<const std::uint8_t> packed = operation.packed();
    if (packed.size() <= inPlaceBytes) [[likely]] {
        // Label by label, because most stacks are shorter than a call takes.
        constexpr std::size_t labelSize = Lumo::UnboundedMplsLabelOperation::packedLabelSize;
        std::size_t at = 0;
        for (; at + labelSize <= packed.size(); at += labelSize) {
            inPlace_[at] = packed[at];
            inPlace_[at + 1] = packed[at + 1];
            inPlace_[at + 2] = packed[at + 2];
        }
        inPlaceSize_ = static_cast<std::uint8_t>(at);
    } else {
        deep_ = packed;
    }
}

Lumo::UnboundedMplsLabelOperation ImposedLabels::operation() const noexcept {
    Lumo::UnboundedMplsLabelOperation operation(
        deep_.empty() ? std::span<const std::uint8_t>(inPlace_.data(), inPlaceSize_) : deep_);
    operation.tc = tc_;
    operation.ttl = ttl_;
    return operation;
}

} // namespace Ovix
