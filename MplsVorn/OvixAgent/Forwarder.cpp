#include "Forwarder.h"

#include <algorithm>
#include <exception>

#include "CaptureError.h"
#include "Ovix/IpHeaderAccess.h"

namespace OvixAgent {

namespace {

constexpr std::string_view module = "Ovix::Agent";
constexpr std::string_view puntedCategory = "punted";
constexpr std::string_view droppedCategory = "dropped";
constexpr std::string_view handedOnCategory = "handedOn";

constexpr Fate forwarded{FateKind::forwarded, {}};

constexpr Fate drop(std::string_view reason) noexcept {
    return {FateKind::dropped, reason};
}

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

Forwarder::Forwarder(const Ptr<Ovix::PluginManager>& manager, PortTable& ports,
                     const Neighbours& neighbours, TransmitPort& cpu)
    : mplsHandler_(manager->routingHandlers()->handler("Mpls")),
      rewrites_(Ovix::RewriteInfoImplMapSharedObject::getMap(manager->sharedObjects())),
      vrfRoot_(Tessel::make<Ovix::RoutingVrfRoot>()), packets_(Lumo::globalPktManager()),
      ports_(&ports), neighbours_(&neighbours), cpu_(&cpu),
      counters_(Tessel::make<Ovix::OvixNamedCounters>()),
      fates_(Tessel::make<Ovix::OvixNamedCounters>()) {}

void Forwarder::receive(const Frame& frame) {
    ++in_.frames;
    in_.bytes += frame.bytes.size();
    counters_->forgetLast();
    try {
        account(process(frame), frame);
    } catch (const CaptureError&) {
        throw; // an output that cannot be written is no fault of the frame
    } catch (const std::exception& refused) {
        // A frame that the plugin or the host refuses outright, such as a stack of more labels than
        // it walks.
        account(drop(refused.what()), frame);
    }
}

Fate Forwarder::process(const Frame& frame) {
    const Ptr<Ovix::PacketContext> packet = takeBytes(frame);
    Ovix::ParsedPacket& parsed = packet->parsedPkt();
    if (!parsed.header(0)) {
        return drop(Reason::runt);
    }
    const ReceivedLink link = readLink(parsed);
    if (!link.routed || link.routed->pktHdrType() != Ovix::PktHdrType::mpls) {
        return {FateKind::handedOn, Reason::notMpls};
    }
    if (!mplsHandler_) {
        return drop(Reason::noHandler);
    }
    return route(frame, packet, link);
}

Ptr<Ovix::PacketContext> Forwarder::takeBytes(const Frame& frame) const {
    return Tessel::make<Ovix::PacketContext>(packets_->newPkt(frame.bytes));
}

Fate Forwarder::route(const Frame& frame, const Ptr<Ovix::PacketContext>& packet,
                      const ReceivedLink& link) {
    const Lumo::IntfId ingress = ports_->ports()[frame.port].intfId;
    const auto context = Tessel::make<Ovix::RoutingContext>(in_.frames, packet, counters_, ingress);
    const auto output = Tessel::make<Ovix::RoutingOutput>();
    mplsHandler_->processPacket(output, context, link.routed, vrfRoot_);
    const Ovix::RoutingNexthops& nexthops = *output->nexthops();
    if (nexthops.empty()) {
        return byWhatWasCounted(FateKind::dropped, Reason::noNexthop);
    }
    return nexthops.size() == 1 ? send(frame, context, link, *nexthops.nexthopFront())
                                : sendToAll(frame, context, link, nexthops);
}

// Every copy is rewritten in bytes of its own. The last one's fate stands for the frame, those of
// the others are replicas'.
Fate Forwarder::sendToAll(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                          const ReceivedLink& link, const Ovix::RoutingNexthops& nexthops) {
    std::size_t left = nexthops.size();
    Fate last = forwarded;
    for (const Ptr<Ovix::RoutingNexthop>& nexthop : nexthops) {
        const auto copy = Tessel::make<Ovix::RoutingContext>(context->packetId(), takeBytes(frame),
                                                             counters_, context->ingressIntfId());
        last = send(frame, copy, link, *nexthop);
        if (--left > 0) {
            ++replicas_;
            account(last, frame);
        }
    }
    return last;
}

Fate Forwarder::send(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                     const ReceivedLink& link, const Ovix::RoutingNexthop& nexthop) {
    // A punted frame goes to the CPU as it was received: the control plane needs the label stack
    // to answer (RFC 8029 section 4.4).
    if (nexthop.isCpuTrapNexthop()) {
        return byWhatWasCounted(FateKind::punted, Reason::trapped);
    }
    Ovix::PacketContext& packet = *context->packetContext();
    packet.pkt()->popFront(link.routed->offset());
    packet.outerTypeIs(link.routed->pktHdrType());
    Fate fate = rewrite(context, nexthop.rewriteInfos());
    if (fate.kind != FateKind::forwarded) {
        return fate;
    }
    Egress egress;
    fate = findEgress(packet, nexthop, egress);
    if (fate.kind != FateKind::forwarded) {
        return fate;
    }
    return transmit(frame, context, link, nexthop, egress);
}

Fate Forwarder::rewrite(const Ptr<Ovix::RoutingContext>& context,
                        const Ovix::RewriteInfos& infos) const {
    for (const Ptr<Ovix::RewriteInfo>& info : infos.rewrites()) {
        const auto fromInfo = rewrites_->rewriteFn(info->typeName());
        if (fromInfo == nullptr) {
            return drop(Reason::unknownRewrite);
        }
        if (const auto failed = fromInfo(info)->apply(context)) {
            return drop(failed->reason());
        }
    }
    return forwarded;
}

Fate Forwarder::findEgress(Ovix::PacketContext& packet, const Ovix::RoutingNexthop& nexthop,
                           Egress& egress) {
    if (!nexthop.vrfName().empty() && nexthop.vrfName().view() != L3::defaultVrf) {
        return drop(Reason::unknownVrf);
    }
    std::optional<PortIndex> portIndex;
    if (!nexthop.intfId().empty()) {
        egress.port = ports_->byIntfId(nexthop.intfId());
        if (egress.port == nullptr) {
            return drop(Reason::unknownPort);
        }
        portIndex = static_cast<PortIndex>(egress.port - ports_->ports().data());
    }
    // On an interface without a next-hop address the IP destination is on the link itself.
    const Lumo::IpGenAddr address =
        nexthop.address().empty() ? ipDestination(packet) : nexthop.address();
    if (address.family() == Lumo::IpFamily::none) {
        return drop(Reason::noAddress);
    }
    if (neighbours_->isLocal(address)) {
        return {FateKind::punted, Reason::localAddress};
    }
    const Neighbours::Neighbour* neighbour = neighbours_->find(address, portIndex);
    if (neighbour == nullptr) {
        return drop(Reason::noNeighbour);
    }
    egress.port = &ports_->ports()[neighbour->port];
    egress.mac = neighbour->mac;
    return forwarded;
}

Fate Forwarder::transmit(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                         const ReceivedLink& link, const Ovix::RoutingNexthop& nexthop,
                         const Egress& egress) {
    Ovix::PacketContext& packet = *context->packetContext();
    Port& port = *egress.port;
    // What a capture left out of the frame counts for its length all the same.
    const std::size_t snapped = frame.originalLength - frame.bytes.size();
    const std::uint32_t mtu = nexthop.mtu() != 0 ? std::min(nexthop.mtu(), port.mtu) : port.mtu;
    if (packet.pkt()->bytes() + snapped > mtu) {
        return drop(Reason::mtuExceeded);
    }
    if (!port.isUp) {
        return drop(Reason::portDown);
    }
    if (!pushLink(packet, port.mac, egress.mac,
                  tagsToSend(link.tags, port.tagging, nexthop.vlanId()))) {
        return drop(Reason::tooLong);
    }
    runCounterActions(context, nexthop.rewriteInfos());
    const std::span<const std::uint8_t> bytes = packet.pkt()->data();
    ++port.sent.frames;
    port.sent.bytes += bytes.size();
    port.out->transmit(
        {frame.port, frame.time, bytes, static_cast<std::uint32_t>(bytes.size() + snapped)});
    return forwarded;
}

void Forwarder::runCounterActions(const Ptr<Ovix::RoutingContext>& context,
                                  const Ovix::RewriteInfos& infos) const {
    for (const Ptr<Ovix::CounterActionInfo>& info : infos.finalCounterActions()) {
        if (const auto fromInfo = rewrites_->counterActionFn(info->typeName())) {
            fromInfo(info)->apply(context);
        }
    }
}

Fate Forwarder::byWhatWasCounted(FateKind kind, std::string_view otherwise) const noexcept {
    const auto* last = counters_->last();
    return {kind, last != nullptr ? std::string_view(last->reason) : otherwise};
}

void Forwarder::account(const Fate& fate, const Frame& frame) {
    switch (fate.kind) {
    case FateKind::forwarded:
        return; // counted at the port
    case FateKind::punted:
        cpu_->transmit(frame);
        fates_->count(puntedCategory, module, fate.reason);
        return;
    case FateKind::dropped:
        fates_->count(droppedCategory, module, fate.reason);
        return;
    case FateKind::handedOn:
        fates_->count(handedOnCategory, module, fate.reason);
        return;
    }
}

void Forwarder::addTo(Summary& summary) const {
    summary.in = in_;
    summary.replicas = replicas_;
    for (const Port& port : ports_->ports()) {
        summary.forwarded.push_back({port.name, port.sent});
    }
    for (const auto& fate : fates_->counters()) {
        Reasons& reasons = fate.category == puntedCategory    ? summary.punted
                           : fate.category == droppedCategory ? summary.dropped
                                                              : summary.handedOn;
        reasons.add(fate.reason, fate.count);
    }
    for (const auto& counter : counters_->counters()) {
        summary.counters.push_back(
            {counter.category, counter.module, counter.reason, counter.count});
    }
}

} // namespace OvixAgent
