#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "Lumo/MplsLabelOperation.h"

namespace Ovix {

/// A copy of a label operation that outlives the via it was read from. Stacks of up to eight labels
/// are held in place.
class ImposedLabels {
  public:
    explicit ImposedLabels(const Lumo::UnboundedMplsLabelOperation& operation);

    /// Outermost first.
    Lumo::UnboundedMplsLabelOperation operation() const noexcept;

  private:
    static constexpr std::size_t inPlaceBytes =
        8 * Lumo::UnboundedMplsLabelOperation::packedLabelSize;

    std::array<std::uint8_t, inPlaceBytes> inPlace_;
    std::vector<std::uint8_t> deep_;
    std::uint16_t inPlaceSize_ = 0;
    std::optional<std::uint8_t> tc_;
    std::uint8_t ttl_;
};

} // namespace Ovix
