#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "Lumo/IpGenAddr.h"

namespace OvixAgent {

/// The IP protocols that the agent reads or writes.
namespace IpProtocol {
inline constexpr std::uint8_t icmp = 1;
inline constexpr std::uint8_t tcp = 6;
inline constexpr std::uint8_t udp = 17;
inline constexpr std::uint8_t icmpv6 = 58;
} // namespace IpProtocol

/// The header of an IP packet that this device sends. Its TTL is 255.
struct IpHeaderFields {
    Lumo::IpGenAddr source; ///< its family is the packet's
    Lumo::IpGenAddr destination;
    std::uint8_t protocol = 0;
    std::uint8_t trafficClass = 0; ///< DSCP and ECN
    bool routerAlert = false;      ///< RFC 2113; in IPv6 RFC 2711, with the value of RFC 7506
};

/// Puts the header in front of a payload, and completes the checksum whose field is at
/// `checksumAt` in the payload and zero. Header and payload must be at most 65535 bytes. An IPv4
/// packet is not to be fragmented, so that it needs no identification (RFC 6864).
std::vector<std::uint8_t> ipPacketBytes(const IpHeaderFields& fields,
                                        std::span<const std::uint8_t> payload,
                                        std::size_t checksumAt);

/// The sum (RFC 1071) of the pseudo header that UDP and ICMPv6 checksums cover (RFC 768, RFC 8200
/// section 8.1), not complemented. Both addresses are of one family.
std::uint16_t pseudoHeaderSum(const Lumo::IpGenAddr& source, const Lumo::IpGenAddr& destination,
                              std::uint8_t protocol, std::size_t length) noexcept;

} // namespace OvixAgent
