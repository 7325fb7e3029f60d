#pragma once

#include <cstdint>
#include <span>

#include "Ovix/packet/PacketHeader.h"

namespace Ovix {

/// Reading and writing the TTL of a label stack entry, an IPv4 header (whose checksum follows,
/// RFC 1624) or an IPv6 header at the start of `bytes`.
struct TtlBytes {
    /// Whether the bytes hold a whole header of that type, as far as its fixed part goes.
    static bool whole(PktHdrType type, std::span<const std::uint8_t> bytes) noexcept;

    // The header must be whole.
    static std::uint8_t ttl(PktHdrType type, std::span<const std::uint8_t> bytes) noexcept;
    static void ttlIs(PktHdrType type, std::span<std::uint8_t> bytes, std::uint8_t ttl) noexcept;
};

} // namespace Ovix
