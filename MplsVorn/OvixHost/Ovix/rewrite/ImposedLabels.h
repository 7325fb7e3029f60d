#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "Lumo/MplsLabelOperation.h"
#include "Tessel/Exceptions.h"

namespace Ovix {

/// A copy of a label operation that outlives the via it was read from. More than 33 labels, which
/// no via record has room for, throw RangeError.
class ImposedLabels {
  public:
    explicit ImposedLabels(const Lumo::UnboundedMplsLabelOperation& operation)
        : tc_(operation.tc), pushedTc_(operation.pushedTc), ttl_(operation.ttl) {
        const std::span<const std::uint8_t> packed = operation.packed();
        if (packed.size() > packed_.size()) [[unlikely]] {
            throw Tessel::RangeError("a stack of more than 33 labels");
        }
        // Label by label, because most stacks are shorter than a call takes.
        constexpr std::size_t labelSize = Lumo::UnboundedMplsLabelOperation::packedLabelSize;
        std::size_t at = 0;
        for (; at + labelSize <= packed.size(); at += labelSize) {
            packed_[at] = packed[at];
            packed_[at + 1] = packed[at + 1];
            packed_[at + 2] = packed[at + 2];
        }
        size_ = static_cast<std::uint8_t>(at);
    }

    /// Outermost first.
    Lumo::UnboundedMplsLabelOperation operation() const noexcept {
        Lumo::UnboundedMplsLabelOperation operation({packed_.data(), size_});
        operation.tc = tc_;
        operation.pushedTc = pushedTc_;
        operation.ttl = ttl_;
        return operation;
    }

  private:
    std::optional<std::uint8_t> tc_;
    std::optional<std::uint8_t> pushedTc_;
    std::uint8_t ttl_;
    std::uint8_t size_ = 0;
    std::array<std::uint8_t, 100> packed_; ///< the first size_ are set
};

} // namespace Ovix
