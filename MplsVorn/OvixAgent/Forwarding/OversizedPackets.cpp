#include <cassert>

#include "Forwarding/Outgoing.h"
#include "Forwarding/Sender.h"
#include "Ip/IpPacket.h"

namespace OvixAgent {

// Packets that exceed the MTU of their egress: cut, or dropped and reported.

/// What the link has put behind the packet, which was beneath a label, counts for no other link.
bool Sender::fitsWithoutTrailer(const Outgoing& outgoing, std::uint32_t mtu) {
    Ovix::PacketContext& packet = outgoing.packet();
    const std::size_t length = IpPacket{packet.outerType(), packet.pkt()->data()}.length();
    if (length > mtu || length >= packet.pkt()->bytes() || outgoing.snapped() > 0) {
        return false;
    }
    packet.pkt()->truncate(length);
    return true;
}

// A labelled packet is left to the control plane, unless its route has pushed the labels here. One
// that was popped for a next hop has not been checked yet.
Fate Sender::transmitTooBig(const Outgoing& outgoing, std::uint32_t mtu) {
    assert(outgoing.packet().pkt()->bytes() + outgoing.snapped() > mtu);
    const Ovix::PacketContext& packet = outgoing.packet();
    const std::size_t labels = outgoing.labels().size();
    const bool isSound =
        outgoing.egress.isIpHop ||
        (isIp(packet.outerType()) &&
         IpPacket{packet.outerType(), packet.pkt()->data()}.fault(outgoing.snapped()).empty());
    if (isSound && labels == 0 && fitsWithoutTrailer(outgoing, mtu)) {
        return transmit(outgoing);
    }
    if (isSound && labels < mtu) {
        if (const auto cut = IpFragments::of(packet.pkt()->offsetFront(labels), mtu - labels)) {
            return transmitFragments(outgoing, *cut);
        }
    }
    return dropTooBig(outgoing, mtu);
}

// Each fragment gets the labels pushed onto the whole packet (RFC 3032 section 3.4), so that all
// take the same path.
Fate Sender::transmitFragments(const Outgoing& outgoing, const IpFragments& fragments) {
    const Ovix::PacketContext& whole = outgoing.packet();
    if (!outgoing.egress.port->isUp) {
        return drop(Reason::portDown);
    }
    assert(fragments.count() > 1);
    for (std::size_t i = 0; i < fragments.count(); ++i) {
        furtherFragments_ += i > 0 ? 1U : 0U;
        const IpFragment fragment = fragments.at(i);
        Ovix::PacketContext packet(packetOf(outgoing.labels(), fragment), whole.outerType());
        if (!outgoing.pushLinkHeader(packet)) {
            return drop(Reason::tooLong);
        }
        outgoing.emit(packet, fragment.snapped);
    }
    runCounterActions(outgoing);
    return forwarded;
}

// Only labelled packets are reported to the control plane, as they would have left, and none to
// this router about its own. To the stations of a pseudowire there is no router in between.
Fate Sender::dropTooBig(const Outgoing& outgoing, std::uint32_t mtu) const {
    if (outgoing.frame.isOwn) {
        return drop(Reason::mtuExceeded);
    }
    Ovix::PacketContext& packet = outgoing.packet();
    const bool isException = mplsMtuExceptions_ && packet.outerType() == Ovix::PktHdrType::mpls;
    const ForwardingTables& tables = egress_.tables();
    const bool isBridged =
        outgoing.egress.pseudowire != nullptr || tables.pseudowires.isCircuit(outgoing.frame.port);
    DropListener* const listener = isBridged ? nullptr : tables.drops;
    if ((listener != nullptr || isException) && outgoing.pushLinkHeader(packet)) {
        if (listener != nullptr) {
            listener->tooBig(outgoing.frame, packet.pkt()->data(), mtu);
        }
        if (isException) {
            mplsMtuExceptions_->handle(outgoing.context, outgoing.egress.port->intfId);
        }
    }
    return drop(Reason::mtuExceeded);
}

} // namespace OvixAgent
