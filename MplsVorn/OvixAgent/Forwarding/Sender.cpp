#include "Forwarding/Sender.h"

#include <algorithm>

#include "Forwarding/PseudowirePayload.h"

namespace OvixAgent {

namespace {

bool pushLinkHeader(Ovix::PacketContext& packet, const VlanTags& received,
                    const Ovix::RoutingNexthop& nexthop, const Egress& egress) {
    const Port& port = *egress.port;
    return pushLink(packet, port.mac, egress.mac,
                    tagsToSend(received, port.tagging, nexthop.vlanId()));
}

} // namespace

Sender::Sender(const Ptr<Ovix::PluginManager>& manager, EgressLookup egress)
    : rewrites_(Ovix::RewriteInfoImplMapSharedObject::getMap(manager->sharedObjects())),
      mplsMtuExceptions_(manager->mtuExceptionHandlers()->handler("Mpls")), egress_(egress) {}

Fate Sender::send(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                  const VlanTags& tags, const Ovix::RoutingNexthop& nexthop) const {
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
                      const Egress& egress) const {
    Ovix::PacketContext& packet = *context->packetContext();
    Port& port = *egress.port;
    // What a capture left out of the frame counts for its length all the same.
    const std::size_t snapped = frame.originalLength - frame.bytes.size();
    const std::uint32_t mtu = nexthop.mtu() != 0 ? std::min(nexthop.mtu(), port.mtu) : port.mtu;
    if (packet.pkt()->bytes() - linkHeaderSize(packet) + snapped > mtu) {
        return refuseTooBig(frame, context, tags, nexthop, egress, mtu);
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
