#pragma once

#include <cstdint>

#include "Lumo/MplsLabel.h"

namespace Ovix {

/// Whether a label is popped without a lookup: the explicit nulls 0 and 2 (RFC 3032) and the
/// entropy label indicator 7 (RFC 6790).
constexpr bool isPoppedWithoutLookup(Lumo::MplsLabel label) noexcept {
    constexpr std::uint32_t labels = (1U << 0U) | (1U << 2U) | (1U << 7U);
    return label.value() <= 7 && ((labels >> label.value()) & 1U) != 0;
}

/// Follows a walk down a label stack and tells which entry is an entropy label: the first one
/// behind an indicator that is not itself popped without a lookup.
class EntropyLabelTracker {
  public:
    void indicatorSeen() noexcept { expected_ = true; }
    bool expected() const noexcept { return expected_; }
    void entropyLabelSeen() noexcept { expected_ = false; }

  private:
    bool expected_ = false;
};

} // namespace Ovix
