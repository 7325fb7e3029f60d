#pragma once

#include <cstdint>

#include "Lumo/IpGenAddr.h"

namespace OvixAgent {

/// How far an address reaches.
enum class IpScope : std::uint8_t {
    global,        ///< a host anywhere
    linkLocal,     ///< a host on the link (RFC 3927, RFC 4291 section 2.5.6)
    linkMulticast, ///< hosts on the link: 224.0.0.0/24, ff02::/16 and the limited broadcast
    multicast,     ///< hosts anywhere
    nowhere,       ///< loopback, unspecified and reserved addresses (RFC 1812 section 5.3.7)
};

/// The address must be of a family.
IpScope ipScope(const Lumo::IpGenAddr& address) noexcept;

} // namespace OvixAgent
