#include "Forwarding/EgressLookup.h"

#include <cassert>

#include "Ip/IpPacket.h"
#include "Ovix/packet/TtlBytes.h"
#include "State/LinkHeader.h"
#include "State/RoadSteps.h"
#include "Tessel/Fib/FecId.h"
#include "Wire/ControlWord.h"
#include "Wire/Ethernet.h"
#include "Wire/LabelStack.h"

namespace OvixAgent {

using Tessel::Fib::FecId;
using Wire::ControlWord;
using Wire::Ethernet;

namespace {

/// RFC 5332 section 8. The low 20 bits name the second label, since the first may be the same for
/// all trees; the only one of a stack of one.
Lumo::EthAddr groupMac(const Ovix::MplsHeaderData& stack) noexcept {
    auto named = stack.begin();
    if (stack.entries() > 1) {
        ++named;
    }
    const std::uint32_t value = (*named).label().value();
    return {0x01,
            0x00,
            0x5e,
            static_cast<std::uint8_t>(0x80U | value >> 16U),
            static_cast<std::uint8_t>(value >> 8U),
            static_cast<std::uint8_t>(value)};
}

/// RFC 1112 section 6.4 and RFC 2464 section 7.
std::optional<Lumo::EthAddr> groupMac(const Lumo::IpGenAddr& destination) noexcept {
    const auto& group = destination.bytes();
    constexpr std::uint8_t ipv4Multicast = 0xe0;
    constexpr std::uint8_t ipv6Multicast = 0xff;
    if (destination.family() == Lumo::IpFamily::ipv4 && (group[0] & 0xf0U) == ipv4Multicast) {
        return Lumo::EthAddr{0x01,     0x00,    0x5e, static_cast<std::uint8_t>(group[1] & 0x7fU),
                             group[2], group[3]};
    }
    if (destination.family() == Lumo::IpFamily::ipv6 && group[0] == ipv6Multicast) {
        return Lumo::EthAddr{0x33, 0x33, group[12], group[13], group[14], group[15]};
    }
    return std::nullopt;
}

void noteFec(std::span<const WeightedNextHop> all, const WeightedNextHop& chosen,
             std::uint32_t hash) {
    std::vector<std::uint64_t> weights;
    for (const WeightedNextHop& each : all) {
        weights.push_back(each.weight);
    }
    RoadSteps::choice("FEC", static_cast<std::size_t>(&chosen - all.data()), hash, weights);
}

/// The destination of a packet that starts with an IP header; of no family for any other packet.
Lumo::IpGenAddr ipDestination(Ovix::PacketContext& packet) {
    const Ptr<Ovix::PacketHeader> header = packet.parsedPkt().header(0);
    return header ? Ovix::ipDestination(*header) : Lumo::IpGenAddr();
}

} // namespace

std::optional<Lumo::EthAddr> groupMac(Ovix::PacketContext& packet) {
    const Ptr<Ovix::PacketHeader> header = packet.parsedPkt().header(0);
    if (header && header->pktHdrType() == Ovix::PktHdrType::mpls) {
        const Ovix::MplsHeaderData* labels = Ovix::mplsHeaderData(*header);
        return labels != nullptr ? std::optional(groupMac(*labels)) : std::nullopt;
    }
    return groupMac(ipDestination(packet));
}

Fate removeFlowLabel(Ovix::PacketContext& packet) {
    assert(packet.outerType() == Ovix::PktHdrType::mpls);
    Wire::LabelWalk walk(packet.pkt()->data());
    Lumo::MplsLabelEntry flow;
    if (!walk.next(flow)) {
        return drop(Reason::noFlowLabel);
    }
    if (!walk.isAtBottom()) {
        return drop(Reason::labelInPseudowire);
    }
    if (flow.label().isSpecialPurpose()) { // RFC 6391 section 3
        return flow.label() == Lumo::genericAssociatedChannel ? punt(Reason::associatedChannel)
                                                              : drop(Reason::specialFlowLabel);
    }
    packet.pkt()->popFront(Lumo::MplsLabelEntry::size);
    packet.outerTypeIs(Ovix::PktHdrType::eth);
    return forwarded;
}

Fate removeControlWord(Ovix::PacketContext& packet, const Pseudowire* pseudowire) {
    const Wire::Bytes payload = packet.pkt()->data();
    if (Ovix::RoadNotes::isOn()) [[unlikely]] {
        RoadSteps::controlWord(payload, pseudowire != nullptr && pseudowire->controlWord);
    }
    if (pseudowire == nullptr || !pseudowire->controlWord) {
        return payload.size() < Ethernet::size ? drop(Reason::pseudowireCutShort) : forwarded;
    }
    const ControlWord controlWord(payload);
    if (!controlWord) {
        return drop(Reason::pseudowireCutShort);
    }
    if (controlWord.isAssociatedChannel()) {
        return punt(Reason::associatedChannel);
    }
    if (!controlWord.isData()) {
        return drop(Reason::noControlWord);
    }
    if (payload.size() < ControlWord::size + Ethernet::size) {
        return drop(Reason::pseudowireCutShort);
    }
    packet.pkt()->popFront(ControlWord::size);
    packet.outerTypeIs(Ovix::PktHdrType::eth);
    return forwarded;
}

// A packet that no label has brought into a VRF stays in that of its port, so that a customer does
// not reach the provider's routes by an explicit null, or another customer's by a tag.
const Fib* EgressLookup::fibFor(const VrfSource& source, const Fib& named, PortIndex port) const {
    if (source.kind == VrfSource::Kind::port) {
        return &tables_->vrfs->fibOfPort(port);
    }
    const auto above =
        source.kind == VrfSource::Kind::labelAbove ? labelVrfs_.of(source.label) : std::nullopt;
    return above ? tables_->vrfs->fib(above->view()) : &named;
}

Fate EgressLookup::findRoute(const Fib& named, Ovix::PacketContext& packet, const Frame& received,
                             const Ovix::RoutingNexthop& nexthop, Egress& egress) const {
    const Port& port = tables_->ports.ports()[received.port];
    const VrfSource source = isIp(packet.outerType()) ? VrfSource::of(received.bytes)
                                                      : VrfSource{VrfSource::Kind::lastLabel, {}};
    const bool isOfPort = source.kind == VrfSource::Kind::port;
    if (isOfPort && !received.isOwn && hasForeignVlan(received.bytes, port.tagging)) {
        return drop(Reason::noVlan);
    }
    const Fib* const fib =
        nexthop.vrfName().empty() ? fibFor(source, named, received.port) : &named;
    if (fib == nullptr) {
        return drop(Reason::unknownVrf);
    }
    const Wire::Ethernet link(received.bytes);
    const IpArrival arrival{received.originalLength - received.bytes.size(), received.port,
                            isOfPort ? port.reversePath : ReversePath::off,
                            link && link.isToGroup(), received.isOwn};
    return router_.route(*fib, nexthop.address(), packet, arrival, egress);
}

Fate EgressLookup::find(Ovix::PacketContext& packet, const Frame& received,
                        const Ovix::RoutingNexthop& nexthop, Egress& egress) const {
    assert(egress.port == nullptr);
    const Fib* const fib = tables_->vrfs->fib(nexthop.vrfName().view());
    if (fib == nullptr) {
        return drop(Reason::unknownVrf);
    }
    const Lumo::IntfId intf = nexthop.intfId();
    if (intf.empty()) {
        const Pseudowire* const pseudowire = tables_->pseudowires.ofPort(received.port);
        if (pseudowire != nullptr) {
            return router_.routeInTunnel(*fib, *pseudowire, nexthop.address(), packet.hash(),
                                         egress);
        }
        return findRoute(*fib, packet, received, nexthop, egress);
    }
    if (FecId::isHierarchicalIntfId(intf)) {
        const WeightedNextHop* member =
            tables_->fecs.choose(intf, packet.hash(), tables_->ports.ports());
        if (Ovix::RoadNotes::isOn() && member != nullptr) [[unlikely]] {
            noteFec(tables_->fecs.nextHops(intf), *member, packet.hash());
        }
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
    assert(index < tables_->ports.ports().size());
    egress.port = &port;
    Pseudowire* const pseudowire = tables_->pseudowires.ofPort(index);
    if (pseudowire != nullptr && packet.outerType() == Ovix::PktHdrType::mpls &&
        (pseudowire->flowLabel || address.empty())) {
        egress.pseudowire = pseudowire;
        return pseudowire->flowLabel ? removeFlowLabel(packet) : drop(Reason::labelInPseudowire);
    }
    // An Ethernet frame has its link header, so it needs no next-hop address.
    if (packet.outerType() == Ovix::PktHdrType::eth) {
        egress.pseudowire = pseudowire;
        if (pseudowire != nullptr || address.empty()) {
            return forwarded;
        }
    }
    // Without a next-hop address the IP destination is on the link itself.
    egress.namedBy = address.empty() ? Solicits::By::packet : Solicits::By::route;
    return sendTo(address.empty() ? ipDestination(packet) : address, index, egress);
}

Fate EgressLookup::sendTo(const Lumo::IpGenAddr& address, PortIndex port, Egress& egress) const {
    const bool isAddressed = address.family() != Lumo::IpFamily::none;
    // Without an address a labelled frame goes to the only neighbour on the link.
    const Lumo::EthAddr* mac =
        isAddressed ? tables_->neighbours.find(address, port) : tables_->neighbours.only(port);
    if (Ovix::RoadNotes::isOn()) [[unlikely]] {
        RoadSteps::neighbour(address, tables_->ports.ports()[port], mac);
    }
    if (mac != nullptr) {
        egress.sendTo(address, mac, egress.namedBy);
        return forwarded;
    }
    const IpRoute* route = tables_->vrfs->fibOfPort(port).find(address);
    if (route != nullptr && route->isLocal()) {
        return punt(Reason::localAddress);
    }
    if (!isAddressed) {
        return drop(Reason::noAddress);
    }
    egress.sendTo(address, nullptr, egress.namedBy);
    return forwarded;
}

} // namespace OvixAgent
