#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "Lumo/IpGenAddr.h"
#include "Ovix/packet/PacketHeader.h"

namespace OvixAgent {

/// Reading an IPv4 (RFC 791) or IPv6 (RFC 8200) packet, whichever `type` says, at the start of its
/// bytes.
struct IpPacket {
    Ovix::PktHdrType type;
    std::span<const std::uint8_t> bytes;

    /// What is wrong with it, as a reason to drop it; empty when it may be processed (RFC 1812
    /// section 5.2.2). `snapped` is how much of it a capture left out behind the bytes. Nothing is
    /// asked of the bytes beforehand; all else here needs a packet in which nothing is wrong.
    std::string_view fault(std::size_t snapped) const noexcept;

    /// Its length as the header tells it; what lies behind is the link's padding.
    std::size_t length() const noexcept;

    std::uint8_t ttl() const noexcept;
    Lumo::IpGenAddr source() const noexcept;
    Lumo::IpGenAddr destination() const noexcept;
};

constexpr bool isIp(Ovix::PktHdrType type) noexcept {
    return type == Ovix::PktHdrType::ipv4 || type == Ovix::PktHdrType::ipv6;
}

/// What an IP packet carries behind its header and, in IPv6, its extension headers.
struct IpUpperLayer {
    std::uint8_t protocol = 0;
    bool isFirstFragment = true; ///< when it is not, there are no bytes
    std::span<const std::uint8_t> bytes;
};

/// Empty when the extension headers (RFC 8200 section 4) run beyond the packet. Nothing may be
/// wrong with the packet.
std::optional<IpUpperLayer> upperLayer(const IpPacket& packet) noexcept;

} // namespace OvixAgent
