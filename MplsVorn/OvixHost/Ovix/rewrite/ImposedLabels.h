#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "Lumo/MplsLabelOperation.h"

namespace Ovix {

/// A copy of a label operation that outlives the via it was read from. Labels that a via record
/// has room for are held in place; a deeper stack stays in Mpls::LabelStacks, which keeps it for
/// good, and must come from there.
class ImposedLabels {
  public:
    /// The same labels where they last: `packed` itself when it fits in place, else a copy in
    /// Mpls::LabelStacks. Throws std::length_error when that is full.
    static std::span<const std::uint8_t> lasting(std::span<const std::uint8_t> packed);

    explicit ImposedLabels(const Lumo::UnboundedMplsLabelOperation& operation) noexcept;

    /// Outermost first.
    Lumo::UnboundedMplsLabelOperation operation() const noexcept;

  private:
    static constexpr std::size_t inPlaceBytes = 100;

    std::span<const std::uint8_t> deep_;
    std::optional<std::uint8_t> tc_;
    std::uint8_t ttl_;
    std::uint8_t inPlaceSize_ = 0;
    std::array<std::uint8_t, inPlaceBytes> inPlace_; ///< the first inPlaceSize_ are set
};

} // namespace Ovix
