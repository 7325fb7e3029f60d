#pragma once

#include "Lumo/EthAddr.h"
#include "Ovix/rewrite/RewriteImpl.h"
#include "State/PortTable.h"
#include "State/Pseudowires.h"

namespace OvixAgent {

/// The way out of a packet: the port, whose MAC address it is sent to, and what is done to it
/// first.
struct Egress {
    Port* port = nullptr;
    Lumo::EthAddr mac{};
    Pseudowire* pseudowire = nullptr;  ///< of which the port is the attachment circuit
    bool isIpHop = false;              ///< the packet was routed by its own destination
    Ovix::RewriteImpl* push = nullptr; ///< the label stack of its route, if any; not owned
};

} // namespace OvixAgent
