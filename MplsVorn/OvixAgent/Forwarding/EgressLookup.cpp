#include "Forwarding/EgressLookup.h"

#include "Forwarding/GroupMac.h"
#include "Ovix/packet/IpHeaderAccess.h"
#include "Tessel/Fib/FecId.h"

namespace OvixAgent {

using Tessel::Fib::FecId;

namespace {

/// The destination of the IP packet that a packet starts with; of no family for anything else.
Lumo::IpGenAddr ipDestination(Ovix::PacketContext& packet) {
    const Ptr<Ovix::PacketHeader> header = packet.parsedPkt().header(0);
    if (header && header->pktHdrType() == Ovix::PktHdrType::ipv4) {
        return Ovix::ipv4Destination(*header);
    }
    if (header && header->pktHdrType() == Ovix::PktHdrType::ipv6) {
        return Ovix::ipv6Destination(*header);
    }
    return {};
}

} // namespace

Fate EgressLookup::find(Ovix::PacketContext& packet, std::size_t snapped,
                        const Ovix::RoutingNexthop& nexthop, Egress& egress) const {
    const Fib* fib = tables_->vrfs->fib(nexthop.vrfName().view());
    if (fib == nullptr) {
        return drop(Reason::unknownVrf);
    }
    const Lumo::IntfId intf = nexthop.intfId();
    if (intf.empty()) {
        return router_.route(*fib, nexthop.address(), packet, snapped, egress);
    }
    if (FecId::isHierarchicalIntfId(intf)) {
        const FecTable::Nexthop* member = tables_->fecs.choose(intf, packet.hash());
        return member != nullptr
                   ? sendBy(tables_->ports.ports()[member->port], member->address, packet, egress)
                   : drop(Reason::unknownFec);
    }
    Port* port = tables_->ports.byIntfId(intf);
    if (port == nullptr) {
        return drop(Reason::unknownPort);
    }
    if (nexthop.isReplica() && nexthop.address().empty()) {
        if (const auto mac = groupMac(packet)) {
            egress.port = port;
            egress.mac = *mac;
            return forwarded;
        }
    }
    return sendBy(*port, nexthop.address(), packet, egress);
}

Fate EgressLookup::sendBy(Port& port, Lumo::IpGenAddr address, Ovix::PacketContext& packet,
                          Egress& egress) const {
    const PortIndex index = tables_->ports.indexOf(port);
    egress.port = &port;
    // An Ethernet frame brings its link header with it, so an interface is enough.
    if (packet.outerType() == Ovix::PktHdrType::eth) {
        egress.pseudowire = tables_->pseudowires.ofPort(index);
        if (egress.pseudowire != nullptr || address.empty()) {
            return forwarded;
        }
    }
    // On an interface without a next-hop address the IP destination is on the link itself.
    return sendTo(address.empty() ? ipDestination(packet) : address, index, egress);
}

Fate EgressLookup::sendTo(const Lumo::IpGenAddr& address, PortIndex port, Egress& egress) const {
    const bool isAddressed = address.family() != Lumo::IpFamily::none;
    // Nobody's address tells who on the link takes a labelled frame, unless there is but one.
    const Lumo::EthAddr* mac =
        isAddressed ? tables_->neighbours.find(address, port) : tables_->neighbours.only(port);
    if (mac != nullptr) {
        egress.mac = *mac;
        return forwarded;
    }
    const IpRoute* route = tables_->vrfs->fibOfPort(port).find(address);
    if (route != nullptr && route->isLocal()) {
        return punt(Reason::localAddress);
    }
    if (!isAddressed) {
        return drop(Reason::noAddress);
    }
    tables_->neighbours.want(address, port);
    return drop(Reason::noNeighbour);
}

} // namespace OvixAgent
