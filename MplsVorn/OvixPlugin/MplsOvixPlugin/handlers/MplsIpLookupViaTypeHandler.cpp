#include "handlers/MplsIpLookupViaTypeHandler.h"

#include "FrameEvents.h"
#include "Ovix/rewrite/MplsRewriteHelper.h"
#include "Ovix/routing/RewriteInfo.h"
#include "Tables/Corruptions.h"
#include "Wire/Ip.h"

namespace Ovix {

namespace {

using Mpls::PayloadType;

/// For an IPv4 and an IPv6 payload alike.
constexpr FrameEvent noInnerHeaders{FrameCategory::drop, "No inner headers for v4 payload"};
constexpr FrameEvent noInnerHeadersForAuto{FrameCategory::drop,
                                           "No inner headers for auto decided payload"};
constexpr FrameEvent innerHeaderNotIp{
    FrameCategory::drop, "Inner header isn't an IP(6) header for auto decided payload. Is %s"};
constexpr FrameEvent ethernetUnsupported{FrameCategory::drop,
                                         "Ethernet is unsupported as a payload type"};
constexpr FrameEvent undefinedPayload{FrameCategory::drop, "Undefined payload"};

/// Takes the destination from where a header of the family has it, whatever the header's version.
/// False when the frame ends before.
bool pointAtDestination(const MplsContext& context, Lumo::IpFamily family,
                        RoutingNexthop& nexthop) {
    if (!context.packetHeader()) {
        return false;
    }
    const Lumo::Pkt& pkt = *context.routingContext()->packetContext()->pkt();
    const std::span<const std::uint8_t> bytes = pkt.offsetFront(context.packetHeader()->offset());
    if (family == Lumo::IpFamily::ipv4 && bytes.size() >= Wire::Ipv4::size) {
        nexthop.addressIs(Lumo::IpGenAddr::ipv4(bytes.data() + Wire::Ipv4::destinationAt));
        return true;
    }
    if (family == Lumo::IpFamily::ipv6 && bytes.size() >= Wire::Ipv6::size) {
        nexthop.addressIs(Lumo::IpGenAddr::ipv6(bytes.data() + Wire::Ipv6::destinationAt));
        return true;
    }
    return false;
}

/// `missing` is reported when there is no destination to point at.
void pointOrReport(const MplsContext& context, Lumo::IpFamily family, const FrameEvent& missing,
                   RoutingNexthop& nexthop) {
    if (!pointAtDestination(context, family, nexthop)) {
        report(*context.routingContext(), missing);
    }
}

/// The payload type follows from the header that was parsed beneath the stack.
void pointAtParsedPayload(const MplsContext& context, RoutingNexthop& nexthop) {
    context.maybeDoFullParse();
    const RoutingContext& routing = *context.routingContext();
    const PktHdrType type =
        context.packetHeader() ? context.packetHeader()->pktHdrType() : PktHdrType::none;
    switch (type) {
    case PktHdrType::ipv4:
        return pointOrReport(context, Lumo::IpFamily::ipv4, noInnerHeadersForAuto, nexthop);
    case PktHdrType::ipv6:
        return pointOrReport(context, Lumo::IpFamily::ipv6, noInnerHeadersForAuto, nexthop);
    case PktHdrType::none:
        return report(routing, noInnerHeadersForAuto);
    default:
        return reportWithValues(routing, innerHeaderNotIp, pktHdrName(type));
    }
}

/// Points the next hop at the payload's IP destination where the payload type says that it has one;
/// what is dropped keeps a next hop without an address.
void pointAtPayload(const MplsContext& context, PayloadType payload, RoutingNexthop& nexthop) {
    const RoutingContext& routing = *context.routingContext();
    switch (payload) {
    case PayloadType::ipv4:
        return pointOrReport(context, Lumo::IpFamily::ipv4, noInnerHeaders, nexthop);
    case PayloadType::ipv6:
        return pointOrReport(context, Lumo::IpFamily::ipv6, noInnerHeaders, nexthop);
    case PayloadType::automatic:
        return pointAtParsedPayload(context, nexthop);
    case PayloadType::ethernet:
        return report(routing, ethernetUnsupported);
    case PayloadType::undefined:
        return report(routing, undefinedPayload);
    default:
        return; // left as it is
    }
}

void setVrf(const RoutingContext& context, const L3::VrfName& vrf, RoutingNexthop& nexthop) {
    if (vrf.view() != L3::defaultVrf) {
        traceFrame(context, "Vrf is not default, set VRF to ", vrf.view());
        nexthop.vrfNameIs(vrf);
    }
}

void countLabel(const MplsContext& context, RoutingNexthop& nexthop) {
    const std::size_t bytes = context.routingContext()->packetContext()->pkt()->bytes();
    nexthop.rewriteInfos().finalCounterActionInfoEnq(Tessel::make<LfibCounterActionInfo>(
        Mpls::RouteKey::fromLabel(context.entry().label()), static_cast<std::uint32_t>(bytes)));
}

} // namespace

MplsIpLookupViaTypeHandler::MplsIpLookupViaTypeHandler(
    Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables,
    const Ptr<Counter::OvixLfibCounterCollection>& counterCollection)
    : MplsViaTypeHandler(viaType), lfibTables_(lfibTables), counterCollection_(counterCollection) {}

Ptr<MplsIpLookupViaTypeHandler> MplsIpLookupViaTypeHandler::MplsIpLookupViaTypeHandlerIs(
    Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables,
    const Ptr<Counter::OvixLfibCounterCollection>& counterCollection) {
    return Tessel::make<MplsIpLookupViaTypeHandler>(viaType, lfibTables, counterCollection);
}

Ptr<MplsIpLookupViaTypeHandler> mplsIpLookupViaTypeHandlerFactory(
    Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables,
    const Ptr<Counter::OvixLfibCounterCollection>& counterCollection) {
    return MplsIpLookupViaTypeHandler::MplsIpLookupViaTypeHandlerIs(viaType, lfibTables,
                                                                    counterCollection);
}

ProcessingResult MplsIpLookupViaTypeHandler::processMplsVia(const Ptr<MplsContext>& context) {
    const Ptr<RoutingContext>& routing = context->routingContext();
    if (context->viaSet()->numVias() != 1) {
        report(*routing, moreThanOneVia);
        return frameDealtWith;
    }
    const Mpls::LfibIpLookupVia via = viaOf(*context->viaSet());
    if (via == Mpls::LfibIpLookupVia()) {
        report(*routing, noVia);
        return frameDealtWith;
    }
    RoutingNexthop& nexthop = firstNexthop(*context);
    if (checkForOam(context, via)) {
        report(*routing, oamPacket);
        nexthop.setCpuTrapNexthop();
        return frameDealtWith;
    }
    setVrf(*routing, via.vrfName, nexthop);
    const Lumo::MplsLabelEntry entry = context->entry();
    const Ptr<RewriteInfos> rewrites = MplsRewriteHelper::createMplsPopRewrite(
        routing, entry, context->packetHeader(), via.payloadType, Mpls::TtlMode::pipe, entry.bos());
    if (!rewrites) {
        report(*routing, noRewrite);
        return frameDealtWith;
    }
    nexthop.rewriteInfos().copyFrom(rewrites);
    if (!entry.bos()) {
        return frameDealtWith;
    }
    pointAtPayload(*context, via.payloadType, nexthop);
    // A payload that is not looked into is left to the host with the pop alone, uncounted.
    if (via.payloadType != PayloadType::none && !nexthop.address().empty()) {
        countLabel(*context, nexthop);
    }
    return frameDealtWith;
}

Mpls::LfibIpLookupVia MplsIpLookupViaTypeHandler::viaOf(const OvixMplsViaSet& viaSet) const {
    const MplsLfibTables::Lfib table = lfibTables_->tableOf(viaSet.source());
    if (!table) {
        return {};
    }
    return readOrDefault(table, [&] { return table->ipLookupVia(viaSet.viaKey(0)); });
}

bool MplsIpLookupViaTypeHandler::checkForOam(const Ptr<MplsContext>& context,
                                             const Mpls::LfibIpLookupVia& via) const {
    if (!context->entry().bos() || !context->packetHeader()) {
        return false;
    }
    if (via.payloadType != PayloadType::ipv4 && via.payloadType != PayloadType::ipv6) {
        traceFrame(*context->routingContext(), "Not IP payload type");
        return false;
    }
    return isLspPing(*context->routingContext(), context->packetHeader());
}

} // namespace Ovix
