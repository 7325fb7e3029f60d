#pragma once

#include <cstdint>
#include <span>

#include "Lumo/IpGenAddr.h"
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

/// The class, 0 to 7, that a whole header of that type carries: the TC of a label stack entry, or
/// the precedence of an IP packet (RFC 3270 maps DSCPs to TC; the class selectors map to
/// themselves).
std::uint8_t trafficClassOf(PktHdrType type, std::span<const std::uint8_t> bytes) noexcept;
/// Writes it. An IP packet keeps the drop precedence in its DSCP's lower bits, and ECN (RFC 3168).
void trafficClassIs(PktHdrType type, std::span<std::uint8_t> bytes, std::uint8_t tc) noexcept;

/// The destination of an "Ipv4" or "Ipv6" header, which the parser makes of whole headers only; of
/// other types the address of no family.
Lumo::IpGenAddr ipDestination(const PacketHeader& header) noexcept;

} // namespace Ovix
