#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "Lumo/IpGenAddr.h"
#include "Ovix/packet/PacketHeader.h"

namespace OvixAgent {

/// What an IP packet carries behind its header and, in IPv6, its extension headers.
struct IpUpperLayer {
    std::uint8_t protocol = 0;
    bool isFirstFragment = true; ///< when false, `bytes` is empty
    std::span<const std::uint8_t> bytes;
};

/// An IPv4 (RFC 791) or IPv6 (RFC 8200) packet, whichever `type` says, at the start of its bytes.
struct IpPacket {
    Ovix::PktHdrType type;
    std::span<const std::uint8_t> bytes;

    /// Why the packet must be dropped; empty when it is valid (RFC 1812 section 5.2.2). `snapped`
    /// is the number of bytes that a capture left out behind `bytes`. All other functions require a
    /// valid packet.
    std::string_view fault(std::size_t snapped) const noexcept;

    /// Its length by the header; padding of the link may follow.
    std::size_t length() const noexcept;

    std::uint8_t ttl() const noexcept;
    Lumo::IpGenAddr source() const noexcept;
    Lumo::IpGenAddr destination() const noexcept;

    /// As far as captured. Empty when the IPv6 extension headers are longer than that.
    std::optional<IpUpperLayer> upperLayer() const noexcept;
};

/// Whether a packet is for the MPLS echo of whichever router processes it (RFC 8029 section 4.3):
/// UDP to port 3503 of 127.0.0.0/8 or ::ffff:127.0.0.0/104. The packet must be valid.
bool isMplsEcho(const IpPacket& packet) noexcept;

constexpr bool isIp(Ovix::PktHdrType type) noexcept {
    return type == Ovix::PktHdrType::ipv4 || type == Ovix::PktHdrType::ipv6;
}

/// How far packets to an address are forwarded.
enum class IpScope : std::uint8_t {
    global,        ///< a host on any link
    linkLocal,     ///< a host on the link (RFC 3927, RFC 4291 section 2.5.6)
    linkMulticast, ///< hosts on the link: 224.0.0.0/24, ff02::/16 and the limited broadcast
    multicast,     ///< hosts on any link
    nowhere,       ///< loopback, unspecified, IPv4-mapped and reserved addresses (RFC 6890)
};

/// Whether an IPv4 address, in the host's byte order, is that of a host on any link.
[[gnu::always_inline]] constexpr bool isGlobalIpv4(std::uint32_t address) noexcept {
    const std::uint32_t network = address >> 24U;
    constexpr std::uint32_t linkLocal = 0xa9fe; // RFC 3927
    return network != 0 && network != 127 && network < 224 && address >> 16U != linkLocal;
}

/// The address must be IPv4 or IPv6.
IpScope ipScope(const Lumo::IpGenAddr& address) noexcept;

} // namespace OvixAgent
