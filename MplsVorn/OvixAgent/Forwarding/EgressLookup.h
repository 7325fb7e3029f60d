#pragma once

#include <optional>

#include "Ip/IpRouter.h"
#include "Lumo/IpGenAddr.h"
#include "Ovix/packet/PacketContext.h"
#include "Ovix/routing/RoutingContext.h"
#include "State/Egress.h"
#include "State/Fate.h"
#include "State/ForwardingTables.h"

namespace OvixAgent {

/// The group MAC address that a multicast packet is sent to on a link: of a labelled packet
/// 01-00-5e-8x-xx-xx with its label, or 0 for a stack of several (RFC 5332 section 8), of an IP
/// multicast packet by its destination (RFC 1112 section 6.4, RFC 2464 section 7). Empty for any
/// other packet.
std::optional<Lumo::EthAddr> groupMac(Ovix::PacketContext& packet);

/// Finds the egress of a next hop for a rewritten packet.
class EgressLookup {
  public:
    /// The tables must outlive the lookup.
    explicit EgressLookup(ForwardingTables& tables) noexcept : tables_(&tables), router_(tables) {}

    /// Forwarded: `egress` is set, its MAC address unless it has to be resolved. `snapped` is the
    /// number of bytes that the capture left out.
    Fate find(Ovix::PacketContext& packet, std::size_t snapped, const Ovix::RoutingNexthop& nexthop,
              Egress& egress) const;

    ForwardingTables& tables() const noexcept { return *tables_; }

  private:
    Fate sendBy(Port& port, Lumo::IpGenAddr address, Ovix::PacketContext& packet,
                Egress& egress) const;
    Fate sendTo(const Lumo::IpGenAddr& address, PortIndex port, Egress& egress) const;

    ForwardingTables* tables_;
    IpRouter router_;
};

} // namespace OvixAgent
