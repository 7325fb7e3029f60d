#include "Ovix/rewrite/MplsRewriteHelper.h"

#include "Ovix/rewrite/MplsRewrites.h"

namespace Ovix {

namespace {

/// There is something to impose, and nothing that never appears on the wire (RFC 3032 section 2.1).
bool imposable(const Lumo::UnboundedMplsLabelOperation& operation) {
    for (std::size_t i = 0; i < operation.depth(); ++i) {
        if (operation.value(i) == Lumo::implicitNull.value()) {
            return false;
        }
    }
    return operation.depth() > 0;
}

/// Whether it is known what a pop of the last label exposes.
bool payloadKnown(Mpls::PayloadType payload, const Ptr<PacketHeader>& innerHeader) noexcept {
    switch (payload) {
    case Mpls::PayloadType::ipv4:
    case Mpls::PayloadType::ipv6:
    case Mpls::PayloadType::ethernet:
        return true;
    case Mpls::PayloadType::none:
    case Mpls::PayloadType::automatic:
        return innerHeader && (innerHeader->pktHdrType() == PktHdrType::ipv4 ||
                               innerHeader->pktHdrType() == PktHdrType::ipv6);
    default:
        return false;
    }
}

/// An entropy label indicator has the TTL of the tunnel's label above it (RFC 6790 section 4.2).
/// When that has ended here in pipe mode, nothing beneath takes it over.
Mpls::TtlMode popMode(const Ptr<RoutingContext>& context, Lumo::MplsLabelEntry entry,
                      Mpls::TtlMode ttlMode) noexcept {
    if (!context || !context->isBeneathTerminated() ||
        entry.label() != Lumo::entropyLabelIndicator) {
        return ttlMode;
    }
    Mpls::TtlMode above = ttlMode;
    for (const Ptr<RewriteInfo>& pop : context->terminated()->rewrites()) {
        above = static_cast<const MplsPopRewriteInfo&>(*pop).ttlMode;
    }
    return above;
}

Ptr<RewriteInfos> listOf(Ptr<RewriteInfo>&& first) {
    auto infos = Tessel::make<RewriteInfos>();
    infos->rewriteInfoEnq(std::move(first));
    return infos;
}

} // namespace

Ptr<RewriteInfos> MplsRewriteHelper::createMplsRewrite(
    const Ptr<RoutingContext>&, Lumo::MplsLabelEntry entry, const Ptr<PacketHeader>& innerHeader,
    Lumo::MplsLabelAction action, const Lumo::UnboundedMplsLabelOperation& operation,
    Mpls::PayloadType payload, Mpls::TtlMode ttlMode, bool) {
    switch (action) {
    case Lumo::MplsLabelAction::swap:
        return imposable(operation) ? listOf(Tessel::make<MplsSwapRewriteInfo>(operation, ttlMode))
                                    : nullptr;
    case Lumo::MplsLabelAction::push: {
        if (!imposable(operation)) {
            return nullptr;
        }
        Ptr<RewriteInfos> infos = listOf(Tessel::make<MplsTtlRewriteInfo>());
        infos->rewriteInfoEnq(Tessel::make<MplsIpPushRewriteInfo>(operation, ttlMode));
        return infos;
    }
    case Lumo::MplsLabelAction::pop:
        if (entry.bos() && !payloadKnown(payload, innerHeader)) {
            return nullptr;
        }
        return listOf(Tessel::make<MplsPopRewriteInfo>(payload, ttlMode, operation.exposesTc));
    default:
        return nullptr;
    }
}

Ptr<RewriteInfos> MplsRewriteHelper::createMplsPopRewrite(const Ptr<RoutingContext>& context,
                                                          Lumo::MplsLabelEntry entry,
                                                          const Ptr<PacketHeader>& innerHeader,
                                                          Mpls::PayloadType payload,
                                                          Mpls::TtlMode ttlMode, bool) {
    // A payload type without a payload is for the caller to judge.
    if (entry.bos() && payload == Mpls::PayloadType::none && !innerHeader) {
        return nullptr;
    }
    Ptr<RewriteInfos> pop =
        listOf(Tessel::make<MplsPopRewriteInfo>(payload, popMode(context, entry, ttlMode)));
    if (!entry.bos() && context) {
        context->popIsPending(*pop);
    }
    return pop;
}

} // namespace Ovix
