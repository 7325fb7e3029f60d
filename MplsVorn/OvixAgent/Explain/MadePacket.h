#pragma once

#include <cstdint>
#include <vector>

#include "Lumo/IpGenAddr.h"
#include "Wire/Ip.h"

namespace OvixAgent {

struct MadeTransport {
    std::uint8_t protocol = 253; ///< for experiments (RFC 3692)
    std::uint16_t source = 49152;
    std::uint16_t destination = 9;
};

/// An IP packet that is made of its fields.
struct MadePacket {
    Lumo::IpGenAddr source;
    Lumo::IpGenAddr destination;
    MadeTransport transport;
    std::uint8_t ttl = 64;
    std::uint8_t trafficClass = 0;
    bool dontFragment = false;
    std::size_t size = 0;                ///< at least
    std::vector<std::uint8_t> payload{}; ///< of UDP, with zeros behind it

    bool isIpv4() const noexcept { return source.family() == Lumo::IpFamily::ipv4; }
    std::size_t headerSize() const noexcept {
        return isIpv4() ? Wire::Ipv4::size : Wire::Ipv6::size;
    }
};

/// With lengths and checksums, and zeros behind the headers.
std::vector<std::uint8_t> ipPacket(const MadePacket& fields);

/// An MPLS echo request (RFC 8029) that asks for a reply by UDP about a prefix of LDP.
std::vector<std::uint8_t> lspPing(const Lumo::IpGenPrefix& fec);

} // namespace OvixAgent
