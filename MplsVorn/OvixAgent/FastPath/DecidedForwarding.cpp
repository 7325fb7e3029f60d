#include "FastPath/DecidedForwarding.h"

#include "Ovix/packet/FlowHash.h"
#include "Wire/ControlWord.h"

namespace OvixAgent {

using Ovix::PktHdrType;
using Wire::Ethernet;

/// A frame of whatever kind.
bool DecidedForwarding::forwardAny(WritableFrame& frame) {
    if (!isPlainLength(frame)) {
        return false;
    }
    PacketWork work;
    work.frame = &frame;
    work.port = frame.port;
    const Intakes& intakes = decided_->intakes;
    const Intake& intake = intakes[work.port];
    if (intake.takesPlainLabels(frame.bytes) && intake.isForStation(frame.bytes)) {
        work.packet = frame.bytes + Ethernet::size;
        work.length = frame.size - static_cast<std::uint32_t>(Ethernet::size);
        return labels_.forward(work);
    }
    if (intake.isCircuit) {
        work.packet = frame.bytes;
        work.length = frame.size;
        return !intake.hasVlans && !intake.isLeftOut && forwardCircuit(work);
    }
    switch (intakes.takeIn(work).value_or(0)) {
    case Wire::EtherType::mpls:
        return intakes[work.port].takesLabels && labels_.forward(work);
    case Wire::EtherType::ipv4:
        return forwardIp(work, PktHdrType::ipv4);
    case Wire::EtherType::ipv6:
        return forwardIp(work, PktHdrType::ipv6);
    default:
        return false;
    }
}

bool DecidedForwarding::routeInPlace(const Intake& intake, WritableFrame& frame) {
    constexpr auto link = static_cast<std::uint32_t>(Ethernet::size);
    const IpHop::Leaving leaving =
        ipHop_.routePlain(intake.fib, frame.bytes + link, frame.size - link, frame.headroom + link);
    if (leaving.line == nullptr) {
        return false;
    }
    labels_.departures().send(frame, *leaving.line, leaving.packet, leaving.length,
                              leaving.etherType);
    return true;
}

bool DecidedForwarding::forwardIp(PacketWork& work, PktHdrType type) {
    const Intake& intake = decided_->intakes[work.port];
    if (!intake.takesIp || work.isToGroup()) {
        return false;
    }
    work.type = type;
    const ReversePath asked = decided_->tables->ports.ports()[work.port].reversePath;
    const EgressLine* const line = ipHop_.route(intake.fib, asked, work);
    if (line == nullptr) {
        return false;
    }
    labels_.departures().send(work, *line, etherTypeOf(work.type));
    return true;
}

/// A whole frame that came in at an attachment circuit. Its class goes into the labels, whose TTL
/// is 255.
bool DecidedForwarding::forwardCircuit(PacketWork work) {
    const CircuitTunnel& tunnel = decided_->tunnels.of(work.port);
    const bool isOfLink = Wire::Ethernet(work.bytes()).etherType() == Wire::EtherType::macControl;
    if (tunnel.pseudowire == nullptr || isOfLink) {
        return false;
    }
    const EgressLine& line = decided_->lines[tunnel.egress];
    const std::uint32_t added = tunnel.labelBytes + tunnel.controlWordBytes;
    if (!line.takes(work.length + added) || !work.hasRoom(added)) {
        return false;
    }
    const Ovix::ImposedLabels& labels = tunnel.imposed->labels;
    const std::uint8_t tc = Ovix::classOf(PktHdrType::eth, work.bytes());
    const std::uint32_t hash =
        labels.namesFlow() ? Ovix::flowHash(PktHdrType::eth, work.bytes()) : 0;
    const std::uint32_t received = work.length;
    work.packet -= added;
    work.length += added;
    work.type = PktHdrType::mpls;
    constexpr std::uint8_t ttl = 255;
    labels.write(work.bytes().first(tunnel.labelBytes), tc, ttl, hash, false);
    if (tunnel.controlWordBytes > 0) {
        Wire::ControlWordWriter(work.bytes().subspan(tunnel.labelBytes)).clear();
    }
    labels_.departures().countSent(*tunnel.pseudowire, received);
    labels_.departures().send(work, line, Wire::EtherType::mpls);
    return true;
}

} // namespace OvixAgent
