#include "Ovix/packet/TtlBytes.h"

#include "Lumo/MplsLabel.h"
#include "Lumo/NetInt.h"

namespace Ovix {

namespace {

constexpr std::size_t labelTtlOffset = 3;
constexpr std::size_t ipv4TtlOffset = 8;
constexpr std::size_t ipv4ChecksumOffset = 10;
constexpr std::size_t ipv4Fixed = 20;
constexpr std::size_t ipv6HopLimitOffset = 7;
constexpr std::size_t ipv6Fixed = 40;

std::size_t offsetOf(PktHdrType type) noexcept {
    switch (type) {
    case PktHdrType::ipv4:
        return ipv4TtlOffset;
    case PktHdrType::ipv6:
        return ipv6HopLimitOffset;
    default:
        return labelTtlOffset;
    }
}

/// HC' = ~(~HC + ~m + m'), RFC 1624 equation 3, for the word that holds TTL and protocol.
void updateChecksum(std::uint8_t* header, std::uint16_t before, std::uint16_t after) noexcept {
    const std::uint16_t old = Lumo::NetU16::load(header + ipv4ChecksumOffset).value();
    std::uint32_t sum = static_cast<std::uint16_t>(~old) +
                        std::uint32_t{static_cast<std::uint16_t>(~before)} + after;
    sum = (sum & 0xffffU) + (sum >> 16U);
    sum = (sum & 0xffffU) + (sum >> 16U);
    Lumo::NetU16(static_cast<std::uint16_t>(~sum)).store(header + ipv4ChecksumOffset);
}

} // namespace

bool TtlBytes::whole(PktHdrType type, std::span<const std::uint8_t> bytes) noexcept {
    switch (type) {
    case PktHdrType::mpls:
        return bytes.size() >= Lumo::MplsLabelEntry::size;
    case PktHdrType::ipv4:
        return bytes.size() >= ipv4Fixed && bytes[0] >> 4U == 4;
    case PktHdrType::ipv6:
        return bytes.size() >= ipv6Fixed && bytes[0] >> 4U == 6;
    default:
        return false;
    }
}

std::uint8_t TtlBytes::ttl(PktHdrType type, std::span<const std::uint8_t> bytes) noexcept {
    return bytes[offsetOf(type)];
}

void TtlBytes::ttlIs(PktHdrType type, std::span<std::uint8_t> bytes, std::uint8_t ttl) noexcept {
    if (type != PktHdrType::ipv4) {
        bytes[offsetOf(type)] = ttl;
        return;
    }
    const std::uint16_t before = Lumo::NetU16::load(bytes.data() + ipv4TtlOffset).value();
    bytes[ipv4TtlOffset] = ttl;
    updateChecksum(bytes.data(), before, Lumo::NetU16::load(bytes.data() + ipv4TtlOffset).value());
}

} // namespace Ovix
