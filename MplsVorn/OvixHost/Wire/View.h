#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>

#include "Lumo/NetInt.h"

/// The headers of the network, each once: its RFC's drawing, its fields' places, and a view that
/// reads or writes it in place. A length is checked when the view is made; a view that is
/// not empty cannot fail.
namespace Wire {

using Bytes = std::span<const std::uint8_t>;
using WritableBytes = std::span<std::uint8_t>;

/// What the views have in common. `Byte` is `const std::uint8_t` in a view that only reads. Empty
/// (false) when made from fewer than `Size` bytes; of an empty view nothing else may be asked.
template <std::size_t Size, typename Byte>
class View {
  public:
    static constexpr std::size_t size = Size;

    constexpr View() noexcept = default;
    constexpr explicit View(std::span<Byte> bytes) noexcept
        : start_(bytes.size() >= Size ? bytes.data() : nullptr) {}

    constexpr explicit operator bool() const noexcept { return start_ != nullptr; }

    /// The header's fixed part.
    std::span<Byte, Size> bytes() const noexcept {
        return std::span<Byte, Size>(at(0, Size), Size);
    }

  protected:
    Byte* at(std::size_t offset, std::size_t bytes) const noexcept {
        assert(start_ != nullptr && offset + bytes <= Size);
        return start_ + offset;
    }

    std::uint8_t u8(std::size_t offset) const noexcept { return *at(offset, 1); }
    std::uint16_t u16(std::size_t offset) const noexcept {
        return Lumo::NetU16::load(at(offset, 2)).value();
    }
    std::uint32_t u32(std::size_t offset) const noexcept {
        return Lumo::NetU32::load(at(offset, 4)).value();
    }
    std::uint64_t u64(std::size_t offset) const noexcept {
        return Lumo::NetU64::load(at(offset, 8)).value();
    }

    void put8(std::size_t offset, std::uint8_t value) const noexcept { *at(offset, 1) = value; }
    void put16(std::size_t offset, std::uint16_t value) const noexcept {
        Lumo::NetU16(value).store(at(offset, 2));
    }
    void put32(std::size_t offset, std::uint32_t value) const noexcept {
        Lumo::NetU32(value).store(at(offset, 4));
    }
    void put64(std::size_t offset, std::uint64_t value) const noexcept {
        Lumo::NetU64(value).store(at(offset, 8));
    }

  private:
    Byte* start_ = nullptr;
};

} // namespace Wire
