#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "Mpls/OvixMplsVia.h"

namespace Mpls {

/// A via record as tables keep it: a mask of the fields that differ from a default via's, then
/// those fields in order. Integers take seven bits per byte, least significant first; flags are
/// their mask bit alone; an interface id is eight bytes, an address its family and 4 or 16 bytes, a
/// string its length and its bytes.
///
///      0       2
///     +-------+----------+----------+--...
///     | mask  | field    | field    |
///     +-------+----------+----------+--...
class PackedVia {
  public:
    /// What the longest via takes.
    static constexpr std::size_t maxBytes = 320;

    explicit PackedVia(const Ovix::OvixMplsVia& via) noexcept;
    std::span<const std::uint8_t> bytes() const noexcept { return {bytes_.data(), size_}; }

    /// Reads a via; false when the bytes end too early or a field is invalid.
    static bool unpack(std::span<const std::uint8_t> bytes, Ovix::OvixMplsVia& via) noexcept;

  private:
    std::array<std::uint8_t, maxBytes> bytes_;
    std::size_t size_ = 0;
};

} // namespace Mpls
