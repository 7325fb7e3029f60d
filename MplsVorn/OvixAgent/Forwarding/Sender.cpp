#include "Forwarding/Sender.h"

#include <algorithm>

#include "Forwarding/PseudowirePayload.h"
#include "Lumo/MplsLabel.h"

namespace OvixAgent {

namespace {

bool pushLinkHeader(Ovix::PacketContext& packet, const VlanTags& received,
                    const Ovix::RoutingNexthop& nexthop, const Egress& egress) {
    const Port& port = *egress.port;
    return pushLink(packet, port.mac, egress.mac,
                    tagsToSend(received, port.tagging, nexthop.vlanId()));
}

/// The labels that a packet without a link header starts with, as far as there are whole ones.
std::span<const std::uint8_t> labelsOf(const Ovix::PacketContext& packet) {
    const std::span<const std::uint8_t> bytes = packet.pkt()->data();
    constexpr std::size_t step = Lumo::MplsLabelEntry::size;
    std::size_t size = 0;
    bool isMore = packet.outerType() == Ovix::PktHdrType::mpls;
    while (isMore && size + step <= bytes.size()) {
        isMore = !Lumo::MplsLabelEntry::load(bytes.data() + size).bos();
        size += step;
    }
    return bytes.first(size);
}

/// A packet of the parts one behind the other.
Ptr<Lumo::Pkt> joined(std::span<const std::uint8_t> labels, std::span<const std::uint8_t> header,
                      std::span<const std::uint8_t> payload) {
    Ptr<Lumo::Pkt> packet = Lumo::globalPktManager()->newPkt();
    auto at = packet->newSharedHeadData(labels.size() + header.size() + payload.size()).begin();
    at = std::copy(labels.begin(), labels.end(), at);
    at = std::copy(header.begin(), header.end(), at);
    std::copy(payload.begin(), payload.end(), at);
    return packet;
}

} // namespace

Sender::Sender(const Ptr<Ovix::PluginManager>& manager, EgressLookup egress)
    : rewrites_(Ovix::RewriteInfoImplMapSharedObject::getMap(manager->sharedObjects())),
      mplsMtuExceptions_(manager->mtuExceptionHandlers()->handler("Mpls")), egress_(egress) {}

Fate Sender::send(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                  const VlanTags& tags, const Ovix::RoutingNexthop& nexthop) {
    Ovix::PacketContext& packet = *context->packetContext();
    Fate fate = rewrite(context, nexthop.rewriteInfos());
    if (fate.kind != FateKind::forwarded) {
        return fate;
    }
    Egress egress;
    fate = egress_.find(packet, frame.originalLength - frame.bytes.size(), nexthop, egress);
    if (fate.kind == FateKind::forwarded && packet.outerType() == Ovix::PktHdrType::eth) {
        fate =
            uncoverEthernet(packet, egress.pseudowire != nullptr && egress.pseudowire->controlWord);
    }
    if (fate.kind == FateKind::forwarded) {
        fate = takeIpHop(context, egress);
    }
    if (fate.kind != FateKind::forwarded) {
        return fate;
    }
    return transmit(frame, context, tags, nexthop, egress);
}

Fate Sender::takeIpHop(const Ptr<Ovix::RoutingContext>& context, const Egress& egress) {
    if (egress.isIpHop) {
        takeIpTtl(*context->packetContext());
    }
    if (egress.push != nullptr) {
        if (const auto failed = egress.push->apply(context)) {
            return drop(failed->reason());
        }
    }
    return forwarded;
}

Fate Sender::rewrite(const Ptr<Ovix::RoutingContext>& context,
                     const Ovix::RewriteInfos& infos) const {
    for (const Ptr<Ovix::RewriteInfo>& info : infos.rewrites()) {
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

// A packet that came with labels, and so has been rewritten, is left to the control plane.
Fate Sender::transmitTooBig(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                            const VlanTags& tags, const Ovix::RoutingNexthop& nexthop,
                            const Egress& egress, std::uint32_t mtu) {
    const Ovix::PacketContext& packet = *context->packetContext();
    const std::size_t labels = labelsOf(packet).size();
    if (egress.isIpHop && nexthop.rewriteInfos().rewrites().empty() && labels < mtu) {
        if (const auto cut = IpFragments::of(packet.pkt()->offsetFront(labels), mtu - labels)) {
            return transmitFragments(frame, packet, tags, nexthop, egress, *cut);
        }
    }
    return refuseTooBig(frame, context, tags, nexthop, egress, mtu);
}

// Each gets the labels that have been pushed onto the whole packet (RFC 3032 section 3.4), which
// keeps them on one way.
Fate Sender::transmitFragments(const Frame& frame, const Ovix::PacketContext& whole,
                               const VlanTags& tags, const Ovix::RoutingNexthop& nexthop,
                               const Egress& egress, const IpFragments& fragments) {
    Port& port = *egress.port;
    if (!port.isUp) {
        return drop(Reason::portDown);
    }
    for (std::size_t i = 0; i < fragments.count(); ++i) {
        furtherFragments_ += i > 0 ? 1U : 0U;
        const IpFragment fragment = fragments.at(i);
        Ovix::PacketContext packet(joined(labelsOf(whole), fragment.header(), fragment.payload),
                                   whole.outerType());
        if (!pushLinkHeader(packet, tags, nexthop, egress)) {
            return drop(Reason::tooLong);
        }
        const std::span<const std::uint8_t> bytes = packet.pkt()->data();
        port.sent.add(bytes.size());
        port.out->transmit({frame.port, frame.time, bytes,
                            static_cast<std::uint32_t>(bytes.size() + fragment.snapped)});
    }
    return forwarded;
}

// The control plane hears of labelled packets alone, and gets them as they would have left.
Fate Sender::refuseTooBig(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                          const VlanTags& tags, const Ovix::RoutingNexthop& nexthop,
                          const Egress& egress, std::uint32_t mtu) const {
    Ovix::PacketContext& packet = *context->packetContext();
    const bool isLabelled = packet.outerType() == Ovix::PktHdrType::mpls;
    const bool isHeardOf = egress_.tooBig() != nullptr || (mplsMtuExceptions_ && isLabelled);
    if (isHeardOf && pushLinkHeader(packet, tags, nexthop, egress)) {
        if (egress_.tooBig() != nullptr) {
            egress_.tooBig()->tooBig(frame, packet.pkt()->data(), mtu);
        }
        if (mplsMtuExceptions_ && isLabelled) {
            mplsMtuExceptions_->handle(context, egress.port->intfId);
        }
    }
    return drop(Reason::mtuExceeded);
}

Fate Sender::transmit(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                      const VlanTags& tags, const Ovix::RoutingNexthop& nexthop,
                      const Egress& egress) {
    Ovix::PacketContext& packet = *context->packetContext();
    Port& port = *egress.port;
    // What a capture left out of the frame counts for its length all the same.
    const std::size_t snapped = frame.originalLength - frame.bytes.size();
    const std::uint32_t mtu = nexthop.mtu() != 0 ? std::min(nexthop.mtu(), port.mtu) : port.mtu;
    if (packet.pkt()->bytes() - linkHeaderSize(packet) + snapped > mtu) [[unlikely]] {
        return transmitTooBig(frame, context, tags, nexthop, egress, mtu);
    }
    if (!port.isUp) {
        return drop(Reason::portDown);
    }
    if (!pushLinkHeader(packet, tags, nexthop, egress)) {
        return drop(Reason::tooLong);
    }
    runCounterActions(context, nexthop.rewriteInfos());
    const std::span<const std::uint8_t> bytes = packet.pkt()->data();
    port.sent.add(bytes.size());
    if (egress.pseudowire != nullptr) {
        egress.pseudowire->delivered.add(bytes.size());
    }
    port.out->transmit(
        {frame.port, frame.time, bytes, static_cast<std::uint32_t>(bytes.size() + snapped)});
    return forwarded;
}

void Sender::runCounterActions(const Ptr<Ovix::RoutingContext>& context,
                               const Ovix::RewriteInfos& infos) const {
    for (const Ptr<Ovix::CounterActionInfo>& info : infos.finalCounterActions()) {
        if (const auto fromInfo = rewrites_->counterActionFn(info->typeName())) {
            fromInfo(info)->apply(context);
        }
    }
}

} // namespace OvixAgent
