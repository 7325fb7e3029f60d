#pragma once

#include "Lumo/IpGenAddr.h"
#include "Ovix/rewrite/RewriteImpl.h"
#include "State/PortTable.h"
#include "State/Pseudowires.h"

namespace OvixAgent {

/// Where a packet leaves: the port, the MAC address it is sent to, and what is done to it first.
struct Egress {
    Port* port = nullptr;
    Lumo::EthAddr mac{};
    Lumo::IpGenAddr unresolved; ///< the neighbour whose MAC address is not known; else of no family
    Pseudowire* pseudowire = nullptr;  ///< of which the port is the attachment circuit
    bool isIpHop = false;              ///< the packet was routed by its own destination
    Ovix::RewriteImpl* push = nullptr; ///< the label stack of its route, if any; not owned

    bool isResolved() const noexcept { return unresolved.family() == Lumo::IpFamily::none; }

    /// `known` is null when the neighbour has to be resolved.
    void sendTo(const Lumo::IpGenAddr& neighbour, const Lumo::EthAddr* known) noexcept {
        mac = known != nullptr ? *known : Lumo::EthAddr{};
        unresolved = known != nullptr ? Lumo::IpGenAddr() : neighbour;
    }
};

} // namespace OvixAgent
