#pragma once

#include <optional>

#include "Forwarding/LabelVrf.h"
#include "Ip/IpRouter.h"
#include "Lumo/IpGenAddr.h"
#include "Ovix/packet/PacketContext.h"
#include "Ovix/routing/RoutingContext.h"
#include "State/Fate.h"
#include "State/ForwardingTables.h"

namespace OvixAgent {

/// The group MAC address that a multicast packet is sent to on a link: of a labelled packet
/// 01-00-5e-8x-xx-xx with its second label, or its only one (RFC 5332 section 8), of an IP
/// multicast packet by its destination (RFC 1112 section 6.4, RFC 2464 section 7). Empty for any
/// other packet.
std::optional<Lumo::EthAddr> groupMac(Ovix::PacketContext& packet);

/// Removes the flow label (RFC 6391) of a packet whose pseudowire label has been popped: the last
/// one of its stack. Forwarded: the packet starts with the control word or the customer's frame.
Fate removeFlowLabel(Ovix::PacketContext& packet);

/// Removes the control word of a packet whose labels have been popped, when `pseudowire` has one;
/// null: the label leads to a port without a pseudowire. Forwarded: the packet is the customer's
/// frame.
///
/// The first nibble of a control word (RFC 4385) is 0 for data, whose other bits an Ethernet
/// pseudowire ignores on receipt (RFC 4448 section 4.6), and 1 for the associated channel (RFC
/// 4385 section 5), which is punted however short its message is; anything else is dropped. Without
/// a control word the payload is the frame, whatever it starts with: so the ends have agreed (RFC
/// 4447 section 6).
Fate removeControlWord(Ovix::PacketContext& packet, const Pseudowire* pseudowire);

/// Finds the egress of a next hop for a rewritten packet.
class EgressLookup {
  public:
    /// The tables must outlive the lookup.
    EgressLookup(ForwardingTables& tables, LabelVrfs vrfs) noexcept
        : tables_(&tables), labelVrfs_(std::move(vrfs)), router_(tables) {}

    /// Forwarded: `egress` is set, its MAC address unless it has to be resolved. `packet` is what
    /// the rewrites have made of the frame `received`.
    Fate find(Ovix::PacketContext& packet, const Frame& received,
              const Ovix::RoutingNexthop& nexthop, Egress& egress) const;

    ForwardingTables& tables() const noexcept { return *tables_; }

  private:
    const Fib* fibFor(const VrfSource& source, const Fib& named, PortIndex port) const;
    /// By the routes of `named`, the VRF of the next hop, or of the port's.
    Fate findRoute(const Fib& named, Ovix::PacketContext& packet, const Frame& received,
                   const Ovix::RoutingNexthop& nexthop, Egress& egress) const;
    Fate sendBy(Port& port, Lumo::IpGenAddr address, Ovix::PacketContext& packet,
                Egress& egress) const;
    Fate sendTo(const Lumo::IpGenAddr& address, PortIndex port, Egress& egress) const;

    ForwardingTables* tables_;
    LabelVrfs labelVrfs_;
    IpRouter router_;
};

} // namespace OvixAgent
