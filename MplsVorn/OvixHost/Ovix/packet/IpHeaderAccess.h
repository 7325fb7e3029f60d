#pragma once

#include <cstdint>

#include "Lumo/IpGenAddr.h"
#include "Lumo/NetInt.h"
#include "Ovix/packet/PacketHeader.h"

namespace Ovix {

// The parser makes no IP or UDP header of fewer bytes than its fixed part, so these cannot fail on
// a header of the right type.

/// The destination of an "Ipv4" header: bytes 16 to 19 (RFC 791).
inline Lumo::IpGenAddr ipv4Destination(const PacketHeader& header) noexcept {
    constexpr std::size_t offset = 16;
    return Lumo::IpGenAddr::ipv4(header.bytes().data() + offset);
}

/// The destination of an "Ipv6" header: bytes 24 to 39 (RFC 8200).
inline Lumo::IpGenAddr ipv6Destination(const PacketHeader& header) noexcept {
    constexpr std::size_t offset = 24;
    return Lumo::IpGenAddr::ipv6(header.bytes().data() + offset);
}

/// The destination port of a "Udp" header: bytes 2 and 3 (RFC 768).
inline std::uint16_t udpDestinationPort(const PacketHeader& header) noexcept {
    constexpr std::size_t offset = 2;
    return Lumo::NetU16::load(header.bytes().data() + offset).value();
}

} // namespace Ovix
