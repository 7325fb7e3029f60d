#pragma once

#include <cstring>

#include "Lumo/IpGenAddr.h"
#include "Wire/View.h"

namespace Wire {

/// The one's complement sum of 16-bit words (RFC 1071), folded; an odd last byte counts as the
/// upper half of a word.
std::uint16_t onesSum(Bytes bytes) noexcept;

/// Whether an IPv4 header of 20 bytes is intact: its sum with the checksum is all ones (RFC 1071),
/// in whichever byte order.
inline bool isIntactIpv4(const std::uint8_t* header) noexcept {
    constexpr std::uint64_t low = 0xffff'ffff;
    std::uint64_t first = 0;
    std::uint64_t second = 0;
    std::uint32_t last = 0;
    std::memcpy(&first, header, sizeof first);
    std::memcpy(&second, header + 8, sizeof second);
    std::memcpy(&last, header + 16, sizeof last);
    std::uint64_t sum = (first & low) + (first >> 32U) + (second & low) + (second >> 32U) + last;
    sum = (sum & 0xffff) + (sum >> 16U & 0xffff) + (sum >> 32U);
    sum = (sum & 0xffff) + (sum >> 16U);
    return ((sum & 0xffff) + (sum >> 16U)) == 0xffff;
}

/// The sum of two folded sums.
constexpr std::uint16_t addSums(std::uint32_t one, std::uint32_t other) noexcept {
    std::uint32_t sum = one + other;
    sum = (sum & 0xffffU) + (sum >> 16U);
    return static_cast<std::uint16_t>((sum & 0xffffU) + (sum >> 16U));
}

/// The sum of the pseudo header of an upper layer's checksum (RFC 768, RFC 9293 and RFC 8200
/// section 8.1).
std::uint16_t pseudoHeaderSum(const Lumo::IpGenAddr& source, const Lumo::IpGenAddr& destination,
                              std::uint8_t protocol, std::size_t length) noexcept;

/// Writes the checksum of the bytes from `start` on at `start + offset`, where zero is or, for TCP,
/// UDP and ICMPv6, the sum of the pseudo header. It is never zero, which would mean none in
/// UDP; all ones mean the same to the others. False, and nothing is written, when the bytes do not
/// reach that far.
bool completeChecksum(WritableBytes bytes, std::size_t start, std::size_t offset) noexcept;

/// A checksum after one word beneath it has changed: HC' = ~(~HC + ~m + m'), RFC 1624 equation 3.
constexpr std::uint16_t updatedChecksum(std::uint16_t checksum, std::uint16_t before,
                                        std::uint16_t after) noexcept {
    const auto inverted = static_cast<std::uint16_t>(~checksum);
    const auto removed = static_cast<std::uint16_t>(~before);
    return static_cast<std::uint16_t>(~addSums(std::uint32_t{inverted} + removed, after));
}

/// An IPv4 header's checksum after its TTL has been decremented: updatedChecksum() of a word whose
/// high byte has become one less.
constexpr std::uint16_t decrementedChecksum(std::uint16_t checksum) noexcept {
    const std::uint32_t sum = checksum + 0x100U;
    return static_cast<std::uint16_t>(sum + (sum >= 0xffffU ? 1U : 0U));
}

} // namespace Wire
