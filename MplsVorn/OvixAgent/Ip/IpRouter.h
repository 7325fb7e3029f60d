#pragma once

#include "Ovix/routing/RoutingContext.h"
#include "Ovix/routing/RoutingHandler.h"
#include "State/Egress.h"
#include "State/Fate.h"
#include "State/ForwardingTables.h"
#include "State/PortTable.h"

namespace OvixAgent {

/// Finds the way out of a next hop that is an address without an interface, by the routes of its
/// VRF.
///
/// When the address is the destination of the very packet, this is the packet's IP hop: the packet
/// is checked (RFC 1812 section 5.2.2), freed of the link's padding, and must be one that a router
/// may pass on. Link-local, broadcast and expired packets go to the CPU, which answers them.
/// Otherwise the address is a next hop that routing tells how to reach.
class IpRouter {
  public:
    /// The tables must outlive the router.
    explicit IpRouter(ForwardingTables& tables) noexcept : tables_(&tables) {}

    /// Forwarded: `egress` is filled. `snapped` is how much of the frame the capture left out.
    Fate route(const Fib& fib, const Lumo::IpGenAddr& address, Ovix::PacketContext& packet,
               std::size_t snapped, Egress& egress) const;

  private:
    Fate follow(const IpRoute& route, Ovix::PacketContext& packet, const Lumo::IpGenAddr& address,
                Egress& egress) const;

    ForwardingTables* tables_;
};

/// Takes this router's one decrement from an IP packet, unless a label's TTL has carried it over
/// already (RFC 3443 section 3.1); an IPv4 checksum follows (RFC 1624).
void takeIpTtl(Ovix::PacketContext& packet) noexcept;

/// Routes the frames that came as IP packets: to their destination, in the VRF of the port that
/// they came in at.
class IpRoutingHandler : public Ovix::RoutingHandler {
  public:
    /// Of one family: `type` says which, and names the handler. The ports must outlive it.
    IpRoutingHandler(Ovix::PktHdrType type, PortTable& ports);

    void processPacket(const Ptr<Ovix::RoutingOutput>& output,
                       const Ptr<Ovix::RoutingContext>& context,
                       const Ptr<Ovix::PacketHeader>& header,
                       const Ptr<Ovix::RoutingVrfRoot>& vrfRoot) override;

  private:
    Ovix::PktHdrType type_;
    PortTable* ports_;
};

} // namespace OvixAgent
