// Labels that are popped without a lookup: the explicit nulls, the entropy label and its indicator.

#include <cassert>

#include "FrameEvents.h"
#include "MplsOvixPlugin.h"
#include "Ovix/packet/TtlBytes.h"
#include "Ovix/rewrite/MplsRewriteHelper.h"

namespace Ovix {

namespace {

constexpr FrameEvent noInnerHeader{FrameCategory::drop, "No inner header for reserved label bos"};
constexpr FrameEvent oamResetVrf{FrameCategory::action, "MPLS Oam packet, reset vrf to default"};
constexpr FrameEvent unknownInnerHeader{FrameCategory::drop,
                                        "Unknown inner header type for reserved label bos: %s"};

void pop(const Ptr<RoutingContext>& context, const Ptr<RoutingNexthop>& nexthop,
         const Ptr<PacketHeader>& innerHeader, Lumo::MplsLabelEntry entry,
         Mpls::PayloadType payload, bool ipExposed) {
    const Ptr<RewriteInfos> rewrites = MplsRewriteHelper::createMplsPopRewrite(
        context, entry, innerHeader, payload, Mpls::TtlMode::uniform, ipExposed);
    if (rewrites) {
        nexthop->rewriteInfos().copyFrom(rewrites);
    }
}

} // namespace

void MplsOvixPlugin::handleReservedLabel(const Ptr<RoutingContext>& context,
                                         const Ptr<RoutingNexthop>& nexthop,
                                         const Ptr<PacketHeader>& innerHeader,
                                         Lumo::MplsLabelEntry entry) const {
    if (!entry.bos()) {
        pop(context, nexthop, innerHeader, entry, Mpls::PayloadType::none, false);
        return;
    }
    if (!innerHeader) {
        report(*context, noInnerHeader);
        return;
    }
    ParsedPacket& parsed = context->packetContext()->parsedPkt();
    parsed.maybeDoFullParse();
    const Ptr<PacketHeader> payload = parsed.header(innerHeader->position());
    assert(payload);
    if (checkForOamMaybeUdpHdr(context, payload)) {
        report(*context, oamResetVrf);
        nexthop->setCpuTrapNexthop();
        nexthop->vrfNameIs(L3::VrfName(L3::defaultVrf));
        pop(context, nexthop, payload, entry, Mpls::PayloadType::none, false);
        return;
    }
    // What is underneath counts, not which null announced it: an IPv4 explicit null over an IPv6
    // packet is popped as IPv6.
    switch (payload->pktHdrType()) {
    case PktHdrType::ipv4:
        nexthop->addressIs(ipDestination(*payload));
        pop(context, nexthop, payload, entry, Mpls::PayloadType::ipv4, true);
        return;
    case PktHdrType::ipv6:
        nexthop->addressIs(ipDestination(*payload));
        pop(context, nexthop, payload, entry, Mpls::PayloadType::ipv6, true);
        return;
    default:
        reportWithValues(*context, unknownInnerHeader, pktHdrName(payload->pktHdrType()));
    }
}

} // namespace Ovix
