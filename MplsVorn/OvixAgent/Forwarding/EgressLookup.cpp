#include "Forwarding/EgressLookup.h"

#include "Ovix/packet/TtlBytes.h"
#include "Tessel/Fib/FecId.h"

namespace OvixAgent {

namespace {

constexpr std::uint8_t low(std::uint32_t value, unsigned shift) noexcept {
    return static_cast<std::uint8_t>(value >> shift);
}

Lumo::EthAddr macOfLabel(std::uint32_t label) noexcept {
    return {0x01, 0x00, 0x5e, low(0x80U | (label >> 16U), 0), low(label, 8), low(label, 0)};
}

std::optional<Lumo::EthAddr> macOfIpv4(const std::uint8_t* group) noexcept {
    constexpr std::uint8_t classD = 0xe;
    if (group[0] >> 4U != classD) {
        return std::nullopt;
    }
    return Lumo::EthAddr{0x01,     0x00,    0x5e, static_cast<std::uint8_t>(group[1] & 0x7fU),
                         group[2], group[3]};
}

std::optional<Lumo::EthAddr> macOfIpv6(const std::uint8_t* group) noexcept {
    constexpr std::uint8_t multicast = 0xff;
    if (group[0] != multicast) {
        return std::nullopt;
    }
    return Lumo::EthAddr{0x33, 0x33, group[12], group[13], group[14], group[15]};
}

} // namespace

std::optional<Lumo::EthAddr> groupMac(Ovix::PacketContext& packet) {
    const Ptr<Ovix::PacketHeader> header = packet.parsedPkt().header(0);
    if (!header) {
        return std::nullopt;
    }
    switch (header->pktHdrType()) {
    case Ovix::PktHdrType::mpls: {
        const Ovix::MplsHeaderData* labels = Ovix::mplsHeaderData(*header);
        return labels != nullptr ? std::optional(macOfLabel((*labels->begin()).label().value()))
                                 : std::nullopt;
    }
    case Ovix::PktHdrType::ipv4:
        return macOfIpv4(Ovix::ipDestination(*header).bytes().data());
    case Ovix::PktHdrType::ipv6:
        return macOfIpv6(Ovix::ipDestination(*header).bytes().data());
    default:
        return std::nullopt;
    }
}

using Tessel::Fib::FecId;

namespace {

/// The destination of the IP packet that a packet starts with; of no family for anything else.
Lumo::IpGenAddr ipDestination(Ovix::PacketContext& packet) {
    const Ptr<Ovix::PacketHeader> header = packet.parsedPkt().header(0);
    return header ? Ovix::ipDestination(*header) : Lumo::IpGenAddr();
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
