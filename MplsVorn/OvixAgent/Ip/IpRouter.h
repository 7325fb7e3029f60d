#pragma once

#include "Ovix/routing/Handlers.h"
#include "Ovix/routing/RoutingContext.h"
#include "State/Fate.h"
#include "State/ForwardingTables.h"
#include "State/PortTable.h"

namespace OvixAgent {

/// How the packet came in that is routed.
struct IpArrival {
    std::size_t snapped = 0; ///< bytes that a capture left out
    PortIndex port = 0;
    /// Asked of its source; off when a label has brought the packet into the VRF.
    ReversePath reversePath = ReversePath::off;
    bool isToGroup = false; ///< in a frame to several stations
    bool isOwn = false;     ///< made by this router
};

/// Finds the egress of a next hop that is an address without an interface, by the routes of its
/// VRF.
///
/// When the address is the destination of the packet itself, this is the packet's IP hop: the
/// packet is checked (RFC 1812 section 5.2.2), its source, too, the link's padding is removed, and
/// it must be one that a router may forward. Link-local, broadcast, MPLS echo and expired packets
/// are punted to the CPU, which answers them. Otherwise the address is a next hop that is resolved
/// by its route.
class IpRouter {
  public:
    /// The tables must outlive the router.
    explicit IpRouter(ForwardingTables& tables) noexcept : tables_(&tables) {}

    /// Forwarded: `egress` is set, its MAC address unless it has to be resolved.
    Fate route(const Fib& fib, const Lumo::IpGenAddr& address, Ovix::PacketContext& packet,
               const IpArrival& arrival, Egress& egress) const;

    /// The same for the labelled packet of a pseudowire, which needs a tunnel to the other end:
    /// labels, or a link that the other end is on.
    Fate routeInTunnel(const Fib& fib, const Pseudowire& pseudowire,
                       const Lumo::IpGenAddr& otherEnd, std::uint32_t hash, Egress& egress) const;

  private:
    Fate follow(const IpRoute& route, Ovix::PacketContext& packet, const Lumo::IpGenAddr& address,
                Egress& egress) const;
    void take(const IpRouteVia& via, const Lumo::IpGenAddr& address, Egress& egress) const;

    ForwardingTables* tables_;
};

/// Decrements the TTL of an IP packet, and updates the IPv4 checksum (RFC 1624), unless this router
/// has already decremented a label's TTL and copied it (RFC 3443 section 3.1).
void decrementIpTtl(Ovix::PacketContext& packet) noexcept;

/// Routes unlabelled IP packets: their next hop is their destination, in the VRF of the port that
/// received them.
class IpRoutingHandler : public Ovix::RoutingHandler {
  public:
    /// Of the family `type`, which names the handler. The ports must outlive it.
    IpRoutingHandler(Ovix::PktHdrType type, PortTable& ports);

    void processPacket(const Ptr<Ovix::RoutingOutput>& output,
                       const Ptr<Ovix::RoutingContext>& context,
                       const Ptr<Ovix::PacketHeader>& header,
                       const Ptr<Ovix::RoutingVrfRoot>& vrfRoot) override;

  private:
    PortTable* ports_;
};

} // namespace OvixAgent
