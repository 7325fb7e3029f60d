#pragma once

#include <cstdint>

#include "Lumo/IpGenAddr.h"

namespace OvixAgent {

/// How far packets to an address are forwarded.
enum class IpScope : std::uint8_t {
    global,        ///< a host on any link
    linkLocal,     ///< a host on the link (RFC 3927, RFC 4291 section 2.5.6)
    linkMulticast, ///< hosts on the link: 224.0.0.0/24, ff02::/16 and the limited broadcast
    multicast,     ///< hosts on any link
    nowhere,       ///< loopback, unspecified and reserved addresses (RFC 1812 section 5.3.7)
};

/// The address must be IPv4 or IPv6.
IpScope ipScope(const Lumo::IpGenAddr& address) noexcept;

} // namespace OvixAgent
