#include "Forwarding/Sender.h"

#include <cassert>
#include <utility>

#include "Forwarding/Outgoing.h"
#include "Ip/IpRouter.h"
#include "State/RoadSteps.h"
#include "Wire/Ip.h"

namespace OvixAgent {

namespace {

void noteHeaders(std::string_view when, const Ovix::PacketContext& packet) {
    if (Ovix::RoadNotes::isOn()) [[unlikely]] {
        RoadSteps::headers(when, packet);
    }
}

/// Labels without a next hop are for the only neighbour on the link.
Fate noNeighbour(const Outgoing& outgoing) {
    const bool lacksNextHop = outgoing.egress.namedBy == Solicits::By::packet &&
                              outgoing.egress.isIpHop && !outgoing.labels().empty();
    return drop(lacksNextHop ? Reason::notOneNeighbour : Reason::noNeighbour);
}

/// The label of what every router on the path is to look at (RFC 3032 section 2.1).
Fate alertRouters(Ovix::PacketContext& packet) {
    if (packet.outerType() != Ovix::PktHdrType::mpls) {
        return forwarded;
    }
    const auto top = Lumo::MplsLabelEntry::load(packet.pkt()->data().data());
    const std::span<std::uint8_t> room = packet.pkt()->pushFront(Lumo::MplsLabelEntry::size);
    if (room.empty()) {
        return drop(Reason::tooLong);
    }
    Lumo::MplsLabelEntry(Lumo::routerAlert, top.tc(), false, top.ttl()).store(room.data());
    packet.outerTypeIs(Ovix::PktHdrType::mpls);
    return forwarded;
}

} // namespace

Sender::Sender(const Ptr<Ovix::PluginManager>& manager, EgressLookup egress, Settled settled)
    : rewrites_(Ovix::RewriteInfoImplMapSharedObject::getMap(manager->sharedObjects())),
      mplsMtuExceptions_(manager->mtuExceptionHandlers()->handler("Mpls")), egress_(egress),
      settled_(std::move(settled)) {}

Fate Sender::send(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                  const VlanTags& tags, const Ovix::RoutingNexthop& nexthop) {
    Outgoing outgoing{frame, context, tags, nexthop};
    Ovix::PacketContext& packet = outgoing.packet();
    noteHeaders("received", packet);
    Fate fate = rewrite(outgoing);
    const bool isBridged = packet.outerType() == Ovix::PktHdrType::eth;
    if (!isBridged) {
        noteHeaders("rewritten", packet);
    }
    if (fate.kind != FateKind::forwarded) {
        return fate;
    }
    const Egress& egress = outgoing.egress;
    fate = find(outgoing);
    reportIfUndelivered(frame, egress, fate);
    if (isBridged && Ovix::RoadNotes::isOn()) [[unlikely]] {
        const bool hasControlWord = egress.pseudowire != nullptr && egress.pseudowire->controlWord;
        RoadSteps::payload("rewritten", packet.pkt()->data(), hasControlWord);
    }
    if (fate.kind == FateKind::forwarded && packet.outerType() == Ovix::PktHdrType::eth) {
        fate = removeControlWord(packet, egress.pseudowire);
    }
    if (fate.kind == FateKind::forwarded) {
        fate = applyIpHop(outgoing);
        noteHeaders("sent", packet);
    }
    if (fate.kind == FateKind::forwarded && frame.alertsRouters) [[unlikely]] {
        fate = alertRouters(packet);
    }
    if (fate.kind != FateKind::forwarded) {
        return fate;
    }
    return egress.isResolved() ? transmit(outgoing) : wait(outgoing);
}

Fate Sender::find(Outgoing& outgoing) {
    via_ = {RecordedVia::noPort, outgoing.nexthop.address()};
    const Fate fate =
        egress_.find(outgoing.packet(), outgoing.frame, outgoing.nexthop, outgoing.egress);
    if (outgoing.egress.port != nullptr) {
        via_ = viaOf(outgoing.egress);
    }
    return fate;
}

RecordedVia Sender::viaOf(const Egress& egress) const noexcept {
    return {egress_.tables().ports.indexOf(*egress.port), egress.neighbour};
}

/// Only where packets are routed by their own destination is their source answered, unless that is
/// this router.
void Sender::reportIfUndelivered(const Frame& frame, const Egress& egress, const Fate& fate) const {
    DropListener* const listener = egress_.tables().drops;
    if (fate.kind == FateKind::dropped && egress.isIpHop && listener != nullptr && !frame.isOwn) {
        listener->undelivered(frame, fate.reason);
    }
}

// Where nobody solicits, as in a run on captures, waiting would only delay the drop.
Fate Sender::wait(const Outgoing& outgoing) {
    if (!outgoing.egress.port->isUp) { // the kernel forgets the neighbours of a link that is down
        return drop(Reason::portDown);
    }
    if (!egress_.tables().neighbours.solicits()) {
        return noNeighbour(outgoing);
    }
    const Solicits::Verdict verdict = want(outgoing);
    if (verdict != Solicits::Verdict::waits) {
        const bool hasFailed = verdict == Solicits::Verdict::failed;
        const Fate fate = hasFailed ? noNeighbour(outgoing) : drop(Reason::neighbourLimit);
        reportIfUndelivered(outgoing.frame, outgoing.egress, fate);
        return fate;
    }
    WaitingPacket packet{
        outgoing.frame, Lumo::globalPktManager()->newPkt(outgoing.frame.bytes), outgoing.context,
        outgoing.tags,  Ptr<const Ovix::RoutingNexthop>(&outgoing.nexthop),     outgoing.egress,
        Clock::now()};
    if (Ovix::RoadNotes::isOn()) [[unlikely]] {
        RoadSteps::waits(outgoing.egress.unresolved, *outgoing.egress.port,
                         WaitingPackets::longest);
    }
    packet.frame.bytes = packet.received->data();
    packet.egress.push = nullptr; // is applied; its route may be replaced meanwhile
    if (const auto displaced = waiting_.add(std::move(packet))) {
        const RecordedVia own = std::exchange(via_, viaOf(displaced->egress));
        settled_(noNeighbour({displaced->frame, displaced->context, displaced->tags,
                              *displaced->nexthop, displaced->egress}),
                 displaced->frame);
        via_ = own;
    }
    return queuedForNeighbour;
}

/// The sender of the packet that is not to be delivered yet is known by its own IP header, beneath
/// the labels that its route has pushed.
Solicits::Verdict Sender::want(const Outgoing& outgoing) const {
    ForwardingTables& tables = egress_.tables();
    Lumo::IpGenAddr source;
    if (outgoing.egress.isIpHop) {
        const Wire::Bytes bytes = outgoing.packet().pkt()->data().subspan(outgoing.labels().size());
        source =
            Wire::ipVersion(bytes) == 4 ? Wire::Ipv4(bytes).source() : Wire::Ipv6(bytes).source();
    }
    return tables.neighbours.wanted().want(
        {outgoing.egress.unresolved, tables.ports.indexOf(*outgoing.egress.port)},
        outgoing.egress.namedBy, outgoing.frame.port, source);
}

void Sender::settleWaiting(Clock::time_point now) {
    ForwardingTables& tables = egress_.tables();
    if (now != Clock::time_point::max()) {
        tables.neighbours.wanted().timeIs(now);
    }
    const auto isOver = [&](const WaitingPacket& packet) {
        const PortIndex port = tables.ports.indexOf(*packet.egress.port);
        return tables.neighbours.find(packet.egress.unresolved, port) != nullptr ||
               tables.neighbours.hasFailed(packet.egress.unresolved, port) ||
               now - packet.since >= WaitingPackets::longest;
    };
    while (const auto packet = waiting_.take(isOver)) {
        via_ = viaOf(packet->egress);
        settled_(settle(*packet), packet->frame);
    }
    tables.neighbours.clearFailed();
}

Fate Sender::settle(const WaitingPacket& packet) {
    const ForwardingTables& tables = egress_.tables();
    Outgoing outgoing{packet.frame, packet.context, packet.tags, *packet.nexthop, packet.egress};
    const Lumo::IpGenAddr neighbour = packet.egress.unresolved;
    const Lumo::EthAddr* mac =
        tables.neighbours.find(neighbour, tables.ports.indexOf(*packet.egress.port));
    if (mac == nullptr) {
        const Fate fate = packet.egress.port->isUp ? noNeighbour(outgoing) : drop(Reason::portDown);
        reportIfUndelivered(packet.frame, packet.egress, fate);
        return fate;
    }
    outgoing.egress.sendTo(neighbour, mac);
    return transmit(outgoing);
}

Fate Sender::rewrite(const Outgoing& outgoing) const {
    const Ptr<Ovix::RewriteInfos>& terminated = outgoing.context->terminated();
    const Fate fate = terminated ? apply(*terminated, outgoing.context) : forwarded;
    return fate.kind == FateKind::forwarded
               ? apply(outgoing.nexthop.rewriteInfos(), outgoing.context)
               : fate;
}

Fate Sender::apply(const Ovix::RewriteInfos& rewrites,
                   const Ptr<Ovix::RoutingContext>& context) const {
    for (const Ptr<Ovix::RewriteInfo>& info : rewrites.rewrites()) {
        const auto fromInfo = rewrites_->rewriteFn(info->typeName());
        if (fromInfo == nullptr) {
            return drop(Reason::noPluginRewrites);
        }
        if (const auto failed = fromInfo(info)->apply(context)) {
            return drop(failed->reason());
        }
    }
    return forwarded;
}

Fate Sender::applyIpHop(const Outgoing& outgoing) {
    if (outgoing.egress.isIpHop && !outgoing.frame.isOwn) {
        decrementIpTtl(outgoing.packet());
    }
    if (outgoing.egress.push != nullptr) {
        if (const auto failed = outgoing.egress.push->apply(outgoing.context)) {
            return drop(failed->reason());
        }
    }
    return forwarded;
}

Fate Sender::transmit(const Outgoing& outgoing) {
    Ovix::PacketContext& packet = outgoing.packet();
    assert(outgoing.egress.port != nullptr);
    // The MTU applies to the whole frame, including what a capture left out.
    const std::size_t length = packet.pkt()->bytes() - linkHeaderSize(packet) + outgoing.snapped();
    if (Ovix::RoadNotes::isOn()) [[unlikely]] {
        RoadSteps::mtu(*outgoing.egress.port, length, outgoing.mtu());
    }
    if (const std::uint32_t mtu = outgoing.mtu(); length > mtu) [[unlikely]] {
        return transmitTooBig(outgoing, mtu);
    }
    if (!outgoing.egress.port->isUp) {
        return drop(Reason::portDown);
    }
    if (!outgoing.pushLinkHeader(packet)) {
        return drop(Reason::tooLong);
    }
    runCounterActions(outgoing);
    if (outgoing.egress.pseudowire != nullptr) {
        outgoing.egress.pseudowire->delivered.add(packet.pkt()->bytes());
    }
    outgoing.emit(packet, outgoing.snapped());
    return forwarded;
}

void Sender::runCounterActions(const Outgoing& outgoing) const {
    for (const Ptr<Ovix::CounterActionInfo>& info :
         outgoing.nexthop.rewriteInfos().finalCounterActions()) {
        if (const auto fromInfo = rewrites_->counterActionFn(info->typeName())) {
            fromInfo(info)->apply(outgoing.context);
        }
    }
}

} // namespace OvixAgent
