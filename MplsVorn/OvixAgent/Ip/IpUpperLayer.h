#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "Ip/IpPacket.h"

namespace OvixAgent {

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
