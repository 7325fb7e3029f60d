#include "Forwarding/Forwarder.h"

#include <exception>

#include "Ip/IpPacket.h"
#include "Ip/IpRouter.h"
#include "State/CaptureError.h"
#include "Summary/Summary.h"
#include "Tessel/Exceptions.h"

namespace OvixAgent {

namespace {

constexpr std::string_view module = "Ovix::Agent";
constexpr std::string_view puntedCategory = "punted";
constexpr std::string_view droppedCategory = "dropped";
constexpr std::string_view handedOnCategory = "handedOn";

} // namespace

Forwarder::Forwarder(const Ptr<Ovix::PluginManager>& manager, ForwardingTables& tables,
                     TransmitPort& cpu)
    : mplsHandler_(manager->routingHandlers()->handler("Mpls")),
      ipv4Handler_(Tessel::make<IpRoutingHandler>(Ovix::PktHdrType::ipv4, tables.ports)),
      ipv6Handler_(Tessel::make<IpRoutingHandler>(Ovix::PktHdrType::ipv6, tables.ports)),
      sender_(manager, EgressLookup(tables)), inputSteps_(manager->genericPipelineSteps()),
      packets_(Lumo::globalPktManager()), tables_(&tables), cpu_(&cpu),
      counters_(Tessel::make<Ovix::OvixNamedCounters>()),
      fates_(Tessel::make<Ovix::OvixNamedCounters>()) {
    offerPorts(*manager->ports(), tables.ports, cpu, inHand_);
}

void Forwarder::receive(const Frame& frame) {
    in_.add(frame.bytes.size());
    counters_->forgetLast();
    inHand_ = {&frame, 0};
    try {
        const Fate fate = process(frame);
        account(fate, *inHand_.frame);
    } catch (const CaptureError&) {
        throw; // an output that cannot be written is no fault of the frame
    } catch (const Tessel::SnapshotLost&) {
        // Label tables are read before anything is sent.
        in_.frames -= 1;
        in_.bytes -= frame.bytes.size();
        throw;
    } catch (const std::exception& refused) {
        // A frame that the plugin or the host refuses outright, such as a stack of more labels than
        // it walks.
        account(drop(refused.what()), *inHand_.frame);
    }
}

Fate Forwarder::process(const Frame& received) {
    const Ptr<Ovix::PacketContext> packet = takeBytes(received);
    packet->receivedAs(in_.frames, counters_.get());
    for (const Ptr<Ovix::InputPipelineStep>& step : inputSteps_->steps()) {
        const Ovix::InputVerdict verdict = step->process(packet);
        switch (verdict.kind) {
        case Ovix::InputVerdict::Kind::unchanged:
            break;
        case Ovix::InputVerdict::Kind::modified:
            takeUp(*packet);
            break;
        case Ovix::InputVerdict::Kind::sent:
            return forwarded;
        case Ovix::InputVerdict::Kind::refused:
            return drop(verdict.reason);
        }
    }
    return takeIn(*inHand_.frame, packet);
}

// From here on the modified packet is what was received: its bytes outlast what is done to it, so
// that copies are made of them and the CPU sees them.
void Forwarder::takeUp(const Ovix::PacketContext& modified) {
    const std::span<const std::uint8_t> bytes = modified.pkt()->data();
    const Frame& old = *inHand_.frame;
    const auto snapped = static_cast<std::uint32_t>(old.originalLength - old.bytes.size());
    modifiedBytes_.assign(bytes.begin(), bytes.end());
    modified_ = {old.port, old.time, modifiedBytes_,
                 static_cast<std::uint32_t>(modifiedBytes_.size()) + snapped};
    inHand_.frame = &modified_;
}

Fate Forwarder::takeIn(const Frame& frame, const Ptr<Ovix::PacketContext>& packet) {
    Ovix::ParsedPacket& parsed = packet->parsedPkt();
    if (!parsed.header(0)) {
        return drop(Reason::runt);
    }
    if (Pseudowire* pseudowire = tables_->pseudowires.ofPort(frame.port)) {
        return sendOverPseudowire(frame, packet, *pseudowire);
    }
    const ReceivedLink link = readLink(parsed);
    switch (link.announced) {
    case Ovix::PktHdrType::mpls:
        return route(frame, packet, link, mplsHandler_);
    case Ovix::PktHdrType::ipv4:
        return routeIp(frame, packet, link, ipv4Handler_);
    case Ovix::PktHdrType::ipv6:
        return routeIp(frame, packet, link, ipv6Handler_);
    default:
        return handOn(Reason::notMpls);
    }
}

Fate Forwarder::routeIp(const Frame& frame, const Ptr<Ovix::PacketContext>& packet,
                        const ReceivedLink& link, const Ptr<Ovix::RoutingHandler>& handler) {
    if (!tables_->ports.ports()[frame.port].routesIp) {
        return handOn(Reason::notMpls);
    }
    if (!link.routed) {
        const IpPacket refused{link.announced, packet->pkt()->offsetFront(link.size)};
        return drop(refused.fault(frame.originalLength - frame.bytes.size()));
    }
    return route(frame, packet, link, handler);
}

Ptr<Ovix::PacketContext> Forwarder::takeBytes(const Frame& frame) const {
    return Tessel::make<Ovix::PacketContext>(packets_->newPkt(frame.bytes));
}

Fate Forwarder::route(const Frame& frame, const Ptr<Ovix::PacketContext>& packet,
                      const ReceivedLink& link, const Ptr<Ovix::RoutingHandler>& handler) {
    if (!handler) {
        return drop(Reason::noHandler);
    }
    const Lumo::IntfId ingress = tables_->ports.ports()[frame.port].intfId;
    const auto context = Tessel::make<Ovix::RoutingContext>(in_.frames, packet, counters_, ingress);
    const auto output = Tessel::make<Ovix::RoutingOutput>();
    handler->processPacket(output, context, link.routed, tables_->vrfs);
    const Ovix::RoutingNexthops& nexthops = *output->nexthops();
    if (inHand_.toCpu > 0) [[unlikely]] {
        countDelivered(nexthops.size());
    } else if (nexthops.empty()) {
        return byWhatWasCounted(FateKind::dropped, Reason::noNexthop);
    }
    return nexthops.size() == 1 ? send(frame, context, link, *nexthops.nexthopFront())
                                : sendToAll(frame, context, link, nexthops);
}

// The packets that the plugin has handed to the CPU are copies of the frame like those that go to
// its next hops; without any of these the first one stands for the frame.
void Forwarder::countDelivered(std::size_t nexthops) {
    for (std::uint64_t i = 0; i < inHand_.toCpu; ++i) {
        fates_->count(puntedCategory, module, Reason::delivered);
    }
    replicas_ += nexthops > 0 ? inHand_.toCpu : inHand_.toCpu - 1;
}

// Whatever the frame is, it goes to the other end whole: its tags are the customer's, not ours.
Fate Forwarder::sendOverPseudowire(const Frame& frame, const Ptr<Ovix::PacketContext>& packet,
                                   Pseudowire& pseudowire) {
    if (!tables_->pseudowires.mplsRouting()) {
        return drop(Reason::mplsRoutingOff);
    }
    const Lumo::IntfId ingress = tables_->ports.ports()[frame.port].intfId;
    const auto context = Tessel::make<Ovix::RoutingContext>(in_.frames, packet, counters_, ingress);
    const Fate fate = sender_.send(frame, context, {}, *pseudowire.remote);
    if (fate.kind == FateKind::forwarded) {
        pseudowire.sent.add(frame.bytes.size());
    }
    return fate;
}

// Every copy is rewritten in bytes of its own: the last one in those of the frame; one for the CPU
// is not rewritten. The last one's fate stands for the frame, those of the others are replicas'.
Fate Forwarder::sendToAll(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                          const ReceivedLink& link, const Ovix::RoutingNexthops& nexthops) {
    std::size_t left = nexthops.size();
    Fate last = forwarded;
    for (const Ptr<Ovix::RoutingNexthop>& nexthop : nexthops) {
        const bool needsNoCopy = --left == 0 || nexthop->isCpuTrapNexthop();
        last = send(frame, needsNoCopy ? context : copyOf(*context, frame), link, *nexthop);
        if (left > 0) {
            ++replicas_;
            account(last, frame);
        }
    }
    return last;
}

Ptr<Ovix::RoutingContext> Forwarder::copyOf(const Ovix::RoutingContext& context,
                                            const Frame& frame) const {
    return Tessel::make<Ovix::RoutingContext>(context.packetId(), takeBytes(frame), counters_,
                                              context.ingressIntfId());
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
    return sender_.send(frame, context, link.tags, nexthop);
}

Fate Forwarder::byWhatWasCounted(FateKind kind, std::string_view otherwise) const noexcept {
    const auto* last = counters_->last();
    return {kind, last != nullptr ? std::string_view(last->reason) : otherwise};
}

void Forwarder::account(const Fate& fate, const Frame& frame) {
    switch (fate.kind) {
    case FateKind::forwarded:
        return; // counted where it left
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
    summary.replicas = replicas_ + sender_.furtherFragments();
    for (const Port& port : tables_->ports.ports()) {
        summary.forwarded.push_back({port.name, port.sent});
    }
    for (const Pseudowire& pseudowire : tables_->pseudowires.all()) {
        summary.pseudowires.push_back({pseudowire.name, pseudowire.sent, pseudowire.delivered});
    }
    for (const auto& fate : fates_->counters()) {
        Reasons& reasons = fate.category == puntedCategory    ? summary.punted
                           : fate.category == droppedCategory ? summary.dropped
                                                              : summary.handedOn;
        reasons.add(fate.reason, fate.count);
    }
    summary.counters = OvixAgent::namedCounters(*counters_);
}

} // namespace OvixAgent
