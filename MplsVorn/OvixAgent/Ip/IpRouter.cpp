#include "Ip/IpRouter.h"

#include <cassert>

#include "Ip/IpPacket.h"
#include "Ip/SourceCheck.h"
#include "Ovix/packet/TtlBytes.h"
#include "State/RoadSteps.h"

namespace OvixAgent {

namespace {

IpPacket ipPacket(const Ovix::PacketContext& packet) noexcept {
    return {packet.outerType(), packet.pkt()->data()};
}

bool isDestination(const Ovix::PacketContext& packet, const Lumo::IpGenAddr& address) noexcept {
    return isIp(packet.outerType()) &&
           Ovix::TtlBytes::whole(packet.outerType(), packet.pkt()->data()) &&
           ipPacket(packet).destination() == address;
}

Fate scopeFate(const IpPacket& packet) noexcept {
    switch (ipScope(packet.destination())) {
    case IpScope::global:
        return forwarded;
    case IpScope::linkLocal:
    case IpScope::linkMulticast:
        return punt(Reason::linkScope);
    case IpScope::multicast:
        return drop(Reason::multicast);
    case IpScope::nowhere:
        break;
    }
    // A label that ended here, or at the router before, may have brought it.
    return isMplsEcho(packet) ? punt(Reason::mplsEcho) : drop(Reason::martianDestination);
}

/// Hosts that have no address yet, or one of their link only, reach this router, but no further.
std::string_view sourceFault(const Fib& fib, const Lumo::IpGenAddr& source,
                             const IpArrival& arrival) noexcept {
    if (arrival.isOwn) {
        return {};
    }
    const IpScope scope = ipScope(source);
    if (scope == IpScope::global) {
        return OvixAgent::sourceFault(fib, source, arrival.reversePath, arrival.port);
    }
    return scope == IpScope::linkLocal || source.empty() ? std::string_view()
                                                         : Reason::martianSource;
}

/// Whether a packet may come in a frame to a group (RFC 1812 section 5.3.4).
bool isToSeveral(const Lumo::IpGenAddr& destination, const IpRoute* route) noexcept {
    const IpScope scope = ipScope(destination);
    return scope == IpScope::linkMulticast || scope == IpScope::multicast ||
           (route != nullptr && route->isBroadcast());
}

/// Forwarded: a router may forward the packet.
Fate forwardingFate(const Ovix::PacketContext& context) noexcept {
    const IpPacket packet = ipPacket(context);
    const Fate fate = scopeFate(packet);
    if (fate.kind != FateKind::forwarded) {
        return fate;
    }
    if (ipScope(packet.source()) != IpScope::global) {
        return drop(Reason::martianSource);
    }
    return packet.ttl() > (context.ttlDecremented() ? 0 : 1) ? forwarded : punt(Reason::ttlExpired);
}

void noteRoute(const VrfRoot& vrfs, const Fib& fib, const Lumo::IpGenAddr& address) {
    for (std::uint32_t i = 0; i < vrfs.size(); ++i) {
        if (&vrfs.fibAt(i) == &fib) {
            RoadSteps::route(vrfs.nameAt(i), fib, address);
        }
    }
}

void noteChoice(const IpRoute& route, std::size_t chosen, std::uint32_t hash) {
    std::vector<std::uint64_t> weights;
    for (const IpRouteVia& via : route.vias()) {
        weights.push_back(via.weight);
    }
    RoadSteps::choice("route", chosen, hash, weights);
}

} // namespace

Fate IpRouter::route(const Fib& fib, const Lumo::IpGenAddr& address, Ovix::PacketContext& packet,
                     const IpArrival& arrival, Egress& egress) const {
    assert(egress.port == nullptr);
    egress.isIpHop = isDestination(packet, address);
    if (egress.isIpHop) {
        const std::string_view fault = ipPacket(packet).fault(arrival.snapped);
        if (!fault.empty()) {
            return drop(fault);
        }
        packet.pkt()->truncate(ipPacket(packet).length());
        const std::string_view forged = sourceFault(fib, ipPacket(packet).source(), arrival);
        if (!forged.empty()) {
            return drop(forged);
        }
    }
    const IpRoute* found = fib.find(address);
    if (Ovix::RoadNotes::isOn()) [[unlikely]] {
        noteRoute(*tables_->vrfs, fib, address);
    }
    if (egress.isIpHop && arrival.isToGroup && !isToSeveral(address, found)) {
        return drop(Reason::ipToGroup);
    }
    if (found != nullptr && found->isLocal()) {
        return punt(Reason::localAddress);
    }
    const Fate fate = egress.isIpHop ? forwardingFate(packet) : forwarded;
    if (fate.kind != FateKind::forwarded) {
        return fate;
    }
    return found != nullptr ? follow(*found, packet, address, egress) : drop(Reason::noRoute);
}

Fate IpRouter::follow(const IpRoute& route, Ovix::PacketContext& packet,
                      const Lumo::IpGenAddr& address, Egress& egress) const {
    assert(!route.isLocal());
    if (route.drops()) {
        return drop(route.dropReason());
    }
    const std::size_t chosen =
        route.vias().size() == 1 ? 0 : route.choose(packet.hash(), tables_->ports.ports());
    if (Ovix::RoadNotes::isOn() && route.vias().size() > 1) [[unlikely]] {
        noteChoice(route, chosen, packet.hash());
    }
    const IpRouteVia& via = route.vias()[chosen];
    take(via, address, egress);
    return forwarded;
}

void IpRouter::take(const IpRouteVia& via, const Lumo::IpGenAddr& address, Egress& egress) const {
    const Lumo::IpGenAddr& neighbour = via.onLink ? address : via.nexthop;
    const Lumo::EthAddr* mac =
        via.mac != nullptr ? via.mac : tables_->neighbours.find(neighbour, via.port);
    // An IPv6 route over an IPv4 core may have labels and no next hop (RFC 4798).
    if (mac == nullptr && via.onLink && via.push) {
        mac = tables_->neighbours.only(via.port);
    }
    if (Ovix::RoadNotes::isOn()) [[unlikely]] {
        RoadSteps::neighbour(neighbour, tables_->ports.ports()[via.port], mac);
    }
    egress.port = &tables_->ports.ports()[via.port];
    egress.push = via.push.get();
    const bool isOfPacket = via.onLink && egress.isIpHop;
    egress.sendTo(neighbour, mac, isOfPacket ? Solicits::By::packet : Solicits::By::route);
}

Fate IpRouter::routeInTunnel(const Fib& fib, const Pseudowire& pseudowire,
                             const Lumo::IpGenAddr& otherEnd, std::uint32_t hash,
                             Egress& egress) const {
    const IpRoute* const found = fib.find(otherEnd);
    if (Ovix::RoadNotes::isOn()) [[unlikely]] {
        noteRoute(*tables_->vrfs, fib, otherEnd);
    }
    if (found == nullptr || found->isLocal() || found->drops()) {
        return drop(Reason::noTunnel);
    }
    const IpRouteVia& via = found->vias()[found->choose(hash, tables_->ports.ports())];
    if (!pseudowire.signalled || !isTunnel(*pseudowire.signalled, via)) {
        return drop(Reason::noTunnel);
    }
    take(via, otherEnd, egress);
    return forwarded;
}

void decrementIpTtl(Ovix::PacketContext& packet) noexcept {
    assert(isIp(packet.outerType()));
    if (packet.ttlDecremented()) {
        return;
    }
    const std::span<std::uint8_t> bytes = packet.pkt()->writableData();
    const Ovix::PktHdrType type = packet.outerType();
    Ovix::TtlBytes::ttlIs(type, bytes,
                          static_cast<std::uint8_t>(Ovix::TtlBytes::ttl(type, bytes) - 1));
    packet.ttlDecrementedIs(true);
}

IpRoutingHandler::IpRoutingHandler(Ovix::PktHdrType type, PortTable& ports)
    : RoutingHandler(std::string(Ovix::pktHdrName(type))), ports_(&ports) {}

void IpRoutingHandler::processPacket(const Ptr<Ovix::RoutingOutput>& output,
                                     const Ptr<Ovix::RoutingContext>& context,
                                     const Ptr<Ovix::PacketHeader>& header,
                                     const Ptr<Ovix::RoutingVrfRoot>&) {
    auto nexthop = Tessel::make<Ovix::RoutingNexthop>(Lumo::IntfId());
    nexthop->addressIs(Ovix::ipDestination(*header));
    if (const Port* port = ports_->byIntfId(context->ingressIntfId())) {
        nexthop->vrfNameIs(port->vrf);
    }
    output->nexthops()->nexthopEnq(std::move(nexthop));
}

} // namespace OvixAgent
