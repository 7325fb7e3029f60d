#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace Lumo {

/// Converts between host and network byte order.
template <typename T>
constexpr T swapToNet(T value) noexcept {
    if constexpr (std::endian::native == std::endian::little) {
        if constexpr (sizeof(T) == 2) {
            return static_cast<T>(__builtin_bswap16(static_cast<std::uint16_t>(value)));
        } else if constexpr (sizeof(T) == 4) {
            return static_cast<T>(__builtin_bswap32(static_cast<std::uint32_t>(value)));
        } else {
            return static_cast<T>(__builtin_bswap64(static_cast<std::uint64_t>(value)));
        }
    }
    return value;
}

/// An unsigned integer kept in network byte order, so that byte order cannot be forgotten.
template <typename T>
class NetUint {
  public:
    constexpr NetUint() noexcept = default;
    constexpr explicit NetUint(T host) noexcept : wire_(swapToNet(host)) {}

    constexpr T value() const noexcept { return swapToNet(wire_); }
    constexpr void valueIs(T host) noexcept { wire_ = swapToNet(host); }

    /// Reads from / writes to sizeof(T) bytes of any alignment.
    static NetUint load(const std::uint8_t* from) noexcept {
        NetUint number;
        std::memcpy(&number.wire_, from, sizeof(T));
        return number;
    }
    void store(std::uint8_t* to) const noexcept { std::memcpy(to, &wire_, sizeof(T)); }

    friend constexpr bool operator==(NetUint, NetUint) noexcept = default;

  private:
    T wire_ = 0;
};

using NetU16 = NetUint<std::uint16_t>;
using NetU32 = NetUint<std::uint32_t>;
using NetU64 = NetUint<std::uint64_t>;

static_assert(sizeof(NetU16) == 2 && sizeof(NetU32) == 4 && sizeof(NetU64) == 8);

} // namespace Lumo
