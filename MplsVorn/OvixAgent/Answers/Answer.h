#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "Answers/LabelledPacket.h"
#include "Lumo/IpGenAddr.h"
#include "Ovix/packet/PacketHeader.h"

namespace OvixAgent {

/// The addresses that answers come from, one per family; one that is empty has no answers.
struct OwnAddresses {
    Lumo::IpGenAddr ipv4{Lumo::IpFamily::ipv4};
    Lumo::IpGenAddr ipv6{Lumo::IpFamily::ipv6};

    /// For answers to an IPv4 or IPv6 packet, whichever `type` says.
    const Lumo::IpGenAddr& of(Ovix::PktHdrType type) const noexcept {
        return type == Ovix::PktHdrType::ipv4 ? ipv4 : ipv6;
    }
};

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

/// A packet that this device sends in answer to a frame.
struct Answer {
    std::vector<std::uint8_t> packet; ///< a whole IP packet
    /// With labels, the packet is to be handled as if it had come in with them, so that this
    /// router's own operation on the outermost follows; without, it is routed.
    std::vector<Lumo::MplsLabelEntry> labels;
};

/// Whether an address can be reached by IP routing from here.
using IsRoutable = std::function<bool(const Lumo::IpGenAddr& address)>;

/// How an answer gets to the source of the packet that it answers: by IP routing, else along
/// the LSP that the packet was on, since the router at its end knows the way back (RFC 3032 section
/// 2.3.2). There the answer gets the labels of the packet, each with a TTL of 255; router alert
/// labels are left out, as they would only bring it back here. Empty when there is no packet, or
/// neither way.
std::optional<Answer> answerTo(const LabelledPacket& received, std::vector<std::uint8_t> packet,
                               const IsRoutable& isRoutable);

} // namespace OvixAgent
