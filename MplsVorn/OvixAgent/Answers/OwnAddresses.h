#pragma once

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

} // namespace OvixAgent
