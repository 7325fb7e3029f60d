#include "Forwarding/Forwarder.h"

#include <cassert>
#include <exception>

#include "Ip/IpPacket.h"
#include "Ip/IpRouter.h"
#include "Mpls/TableDirectory.h"
#include "State/Frame.h"
#include "State/RoadSteps.h"
#include "Tessel/Exceptions.h"

namespace OvixAgent {

namespace {

/// Whether a frame to a group of stations has a label that is not that of a multicast tree, but
/// would lead on: every station of the link would forward it.
bool isUnicastToGroup(const Frame& frame, const Ovix::RoutingOutput& output,
                      const Ovix::RoutingContext& context) noexcept {
    if ((frame.bytes.front() & 1U) == 0) {
        return false;
    }
    for (const Ptr<Ovix::RoutingNexthop>& nexthop : *output.nexthops()) {
        const bool isOfTree = nexthop->isReplica() || nexthop->isCpuTrapNexthop();
        if (!isOfTree || context.terminated()) {
            return true;
        }
    }
    return false;
}

LabelVrfs labelVrfs(const Ovix::PluginManager& manager) {
    const Ptr<Ovix::ShmEntitySource>& source = manager.shmEntitySource();
    const auto path = Mpls::tableDirectory[static_cast<std::size_t>(Mpls::TableId::decapLfib)].path;
    return LabelVrfs(source ? source->entityManager()->fetch<Mpls::LfibStatus>(path).entity
                            : nullptr);
}

} // namespace

Forwarder::Forwarder(const Ptr<Ovix::PluginManager>& manager, ForwardingTables& tables,
                     TransmitPort& cpu)
    : intake_(tables), mplsHandler_(manager->routingHandlers()->handler("Mpls")),
      ipv4Handler_(Tessel::make<IpRoutingHandler>(Ovix::PktHdrType::ipv4, tables.ports)),
      ipv6Handler_(Tessel::make<IpRoutingHandler>(Ovix::PktHdrType::ipv6, tables.ports)),
      sender_(manager, EgressLookup(tables, labelVrfs(*manager)),
              [this](const Fate& fate, const Frame& frame) {
                  count(fate, frame);
                  settled_(fate, frame);
              }),
      inputSteps_(manager->genericPipelineSteps()), packets_(Lumo::globalPktManager()),
      tables_(&tables), cpu_(&cpu) {
    registerPorts(*manager->ports(), tables.ports, cpu, current_);
}

void Forwarder::receive(const Frame& frame) {
    assert(frame.originalLength >= frame.bytes.size());
    assert(frame.port < tables_->ports.ports().size());
    accounts_.received(frame.bytes.size());
    sender_.forgetVia();
    lastFate_ = forwarded;
    Frame own = frame;
    current_ = {&own, 0};
    try {
        Fate fate = intake_.admit(own);
        if (fate.kind == FateKind::forwarded) {
            fate = process(own);
        }
        account(fate, *current_.frame);
    } catch (const CaptureError&) {
        throw; // an output failed, not the frame
    } catch (const Tessel::SnapshotLost&) {
        // Label tables are read before anything is sent, so nothing is left of the first try.
        accounts_.takeBack(frame.bytes.size());
        throw;
    } catch (const std::exception& refused) {
        // The plugin or the host refuses the frame, for example for too many labels.
        account(drop(refused.what()), *current_.frame);
    }
}

Fate Forwarder::process(const Frame& received) {
    const Ptr<Ovix::PacketContext> packet = newPacket(received);
    packet->receivedAs(accounts_.number(), accounts_.counters().get());
    if (Pseudowire* pseudowire = tables_->pseudowires.ofPort(received.port)) {
        return sendOverPseudowire(received, packet, *pseudowire);
    }
    if (const auto settled = inputSteps_.run(packet, current_)) {
        return *settled;
    }
    return dispatch(*current_.frame, packet);
}

Fate Forwarder::dispatch(const Frame& frame, const Ptr<Ovix::PacketContext>& packet) {
    Ovix::ParsedPacket& parsed = packet->parsedPkt();
    if (!parsed.header(0)) {
        return drop(Reason::runt);
    }
    const ReceivedLink link = readLink(parsed);
    switch (link.announced) {
    case Ovix::PktHdrType::mpls:
        return routeLabels(frame, packet, link);
    case Ovix::PktHdrType::ipv4:
        return routeIp(frame, packet, link, ipv4Handler_);
    case Ovix::PktHdrType::ipv6:
        return routeIp(frame, packet, link, ipv6Handler_);
    default:
        return handOn(link.hasUnreadTag ? Reason::unreadTags : Reason::notMpls);
    }
}

// The label tables hold what this router has assigned. A label that a neighbour has assigned means
// something in that neighbour's context only (RFC 5331 section 7, RFC 5332 section 3).
Fate Forwarder::routeLabels(const Frame& frame, const Ptr<Ovix::PacketContext>& packet,
                            const ReceivedLink& link) {
    const Port& port = tables_->ports.ports()[frame.port];
    if (!port.mpls) {
        return drop(Reason::mplsNotAllowed);
    }
    if (link.isUpstreamAssigned && !port.upstreamLabels) {
        return drop(Reason::upstreamLabel);
    }
    return route(frame, packet, link, mplsHandler_);
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

Ptr<Ovix::PacketContext> Forwarder::newPacket(const Frame& frame) const {
    return Tessel::make<Ovix::PacketContext>(packets_->newPkt(frame.bytes));
}

Ptr<Ovix::RoutingContext> Forwarder::contextOf(const Frame& frame,
                                               const Ptr<Ovix::PacketContext>& packet) const {
    return Tessel::make<Ovix::RoutingContext>(accounts_.number(), packet, accounts_.counters(),
                                              tables_->ports.ports()[frame.port].intfId);
}

Fate Forwarder::route(const Frame& frame, const Ptr<Ovix::PacketContext>& packet,
                      const ReceivedLink& link, const Ptr<Ovix::RoutingHandler>& handler) {
    if (!handler) {
        return drop(Reason::noHandler);
    }
    const Ptr<Ovix::RoutingContext> context = contextOf(frame, packet);
    const auto output = Tessel::make<Ovix::RoutingOutput>();
    handler->processPacket(output, context, link.routed, tables_->vrfs);
    const Ovix::RoutingNexthops& nexthops = *output->nexthops();
    if (nexthops.empty()) [[unlikely]] {
        routeBeneath(output, context, link.routed, *handler);
    }
    if (current_.toCpu > 0) [[unlikely]] {
        accounts_.addDelivered(current_.toCpu, nexthops.size(), frame);
    } else if (link.announced == Ovix::PktHdrType::mpls &&
               isUnicastToGroup(frame, *output, *context)) [[unlikely]] {
        return drop(Reason::labelToGroup);
    } else if (nexthops.empty()) {
        return withoutNexthop(*context);
    }
    return nexthops.size() == 1 ? send(frame, context, link, *nexthops.nexthopFront())
                                : sendToAll(frame, context, link, nexthops);
}

// The parse stays that of the frame as received, whose flow hash and length every pass uses. Each
// pass passes at least one label.
void Forwarder::routeBeneath(const Ptr<Ovix::RoutingOutput>& output,
                             const Ptr<Ovix::RoutingContext>& context,
                             Ptr<Ovix::PacketHeader> labels, Ovix::RoutingHandler& handler) {
    while (output->nexthops()->empty() && current_.toCpu == 0 && !accounts_.hasLastEvent()) {
        const std::size_t popped = context->terminatePopped();
        if (popped > 0) {
            labels = Ovix::labelsBeneath(*labels, popped);
        }
        if (popped == 0 || !labels) {
            return;
        }
        handler.processPacket(output, context, labels, tables_->vrfs);
    }
}

Fate Forwarder::withoutNexthop(const Ovix::RoutingContext& context) const noexcept {
    const Fate fate = accounts_.byLastEvent(FateKind::dropped, Reason::noNexthop);
    const bool isNothingFound =
        fate.reason == Reason::noNexthop || fate.reason == Reason::nothingResolved;
    return context.terminated() && isNothingFound ? drop(Reason::noNexthopBeneath) : fate;
}

// Every frame is sent whole: its tags are the customer's.
Fate Forwarder::sendOverPseudowire(const Frame& frame, const Ptr<Ovix::PacketContext>& packet,
                                   Pseudowire& pseudowire) {
    if (!packet->parsedPkt().header(0)) {
        return drop(Reason::runt);
    }
    if (Wire::Ethernet(frame.bytes).etherType() == Wire::EtherType::macControl) {
        return drop(Reason::pauseFrame); // RFC 4448 section 4.4.5
    }
    if (!tables_->pseudowires.mplsRouting()) {
        return drop(Reason::mplsRoutingOff);
    }
    if (!pseudowire.dropReason.empty()) {
        return drop(pseudowire.dropReason);
    }
    const Ptr<Ovix::RoutingContext> context = contextOf(frame, packet);
    const Fate fate = sender_.send(frame, context, {}, *pseudowire.remote);
    if (fate.kind == FateKind::forwarded) {
        pseudowire.sent.add(frame.bytes.size());
    }
    return fate;
}

// Every copy has bytes of its own to be rewritten, except the last, which uses the frame's, and
// those for the CPU, which are not rewritten. The last fate is the frame's, the others are
// replicas'.
Fate Forwarder::sendToAll(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                          const ReceivedLink& link, const Ovix::RoutingNexthops& nexthops) {
    std::size_t left = nexthops.size();
    Fate last = forwarded;
    for (const Ptr<Ovix::RoutingNexthop>& nexthop : nexthops) {
        const bool needsNoCopy = --left == 0 || nexthop->isCpuTrapNexthop();
        last = send(frame, needsNoCopy ? context : copyOf(*context, frame), link, *nexthop);
        if (left > 0) {
            accounts_.addReplicas(1);
            account(last, frame);
        }
    }
    return last;
}

Ptr<Ovix::RoutingContext> Forwarder::copyOf(const Ovix::RoutingContext& context,
                                            const Frame& frame) const {
    Ptr<Ovix::RoutingContext> copy = contextOf(frame, newPacket(frame));
    copy->terminatedAre(context.terminated());
    return copy;
}

Fate Forwarder::send(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                     const ReceivedLink& link, const Ovix::RoutingNexthop& nexthop) {
    if (Ovix::RoadNotes::isOn()) [[unlikely]] {
        RoadSteps::nexthop(nexthop, tables_->ports);
    }
    // A punted frame goes to the CPU as it was received: the control plane needs the label stack
    // to answer (RFC 8029 section 4.4).
    if (nexthop.isCpuTrapNexthop()) {
        return accounts_.byLastEvent(FateKind::punted, Reason::trapped);
    }
    assert(link.routed && link.routed->offset() >= link.size);
    Ovix::PacketContext& packet = *context->packetContext();
    packet.pkt()->popFront(link.routed->offset());
    packet.outerTypeIs(link.routed->pktHdrType());
    return sender_.send(frame, context, link.tags, nexthop);
}

void Forwarder::account(const Fate& fate, const Frame& frame) {
    if (Ovix::RoadNotes::isOn()) [[unlikely]] {
        RoadSteps::fate(fate);
    }
    if (fate.kind != FateKind::forwarded) {
        lastFate_ = count(fate, frame);
    }
}

Fate Forwarder::count(const Fate& fate, const Frame& frame) {
    const Frame received = intake_.asReceived(frame);
    if (fate.kind == FateKind::punted) {
        cpu_->transmit(received);
    }
    return accounts_.add(fate, received, sender_.via());
}

void Forwarder::addTo(Summary& summary) const {
    accounts_.addTo(summary);
    summary.replicas += sender_.furtherFragments();
    summary.waiting = sender_.waiting();
    for (const Port& port : tables_->ports.ports()) {
        summary.forwarded.push_back({port.name, port.sent});
    }
    for (const Pseudowire& pseudowire : tables_->pseudowires.all()) {
        summary.pseudowires.push_back({pseudowire.name, pseudowire.sent, pseudowire.delivered});
    }
}

Forwarder::Counts Forwarder::counts() const {
    Counts now{accounts_.number(),
               accounts_.replicas() + sender_.furtherFragments(),
               {},
               accounts_.fateCounts()};
    for (const Port& port : tables_->ports.ports()) {
        now.forwarded += port.sent;
    }
    return now;
}

Summary Forwarder::growthSince(const Counts& before) const {
    const Counts now = counts();
    Summary grown;
    grown.in.frames = now.in - before.in;
    grown.replicas = now.replicas - before.replicas;
    grown.forwarded.push_back({{},
                               {now.forwarded.frames - before.forwarded.frames,
                                now.forwarded.bytes - before.forwarded.bytes}});
    accounts_.addFatesTo(grown, before.fates);
    return grown;
}

} // namespace OvixAgent
