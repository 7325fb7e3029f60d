#include "handlers/MplsIpViaTypeHandler.h"

#include "FrameEvents.h"
#include "Ovix/rewrite/MplsRewriteHelper.h"
#include "Ovix/routing/RewriteInfo.h"
#include "Tessel/Assert.h"

namespace Ovix {

namespace {

constexpr FrameEvent noRewriteForMulticast{FrameCategory::drop,
                                           "no rewrite for multicast, skipping via"};

/// The via's next-hop description, field by field.
void copyNexthop(const OvixMplsVia& via, RoutingNexthop& nexthop) {
    nexthop.intfIdIs(via.intfId);
    nexthop.addressIs(via.nexthop);
    nexthop.vrfNameIs(via.vrfName);
    nexthop.mtuIs(via.nexthopMtu);
    nexthop.vlanIdIs(via.nexthopVlan);
}

} // namespace

MplsIpViaTypeHandler::MplsIpViaTypeHandler(
    Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables,
    const Ptr<Counter::OvixLfibCounterCollection>& counterCollection)
    : MplsViaTypeHandler(viaType), lfibTables_(lfibTables), counterCollection_(counterCollection) {}

Ptr<MplsIpViaTypeHandler> MplsIpViaTypeHandler::MplsIpViaTypeHandlerIs(
    Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables,
    const Ptr<Counter::OvixLfibCounterCollection>& counterCollection) {
    return Tessel::make<MplsIpViaTypeHandler>(viaType, lfibTables, counterCollection);
}

Ptr<MplsIpViaTypeHandler>
mplsIpViaTypeHandlerFactory(Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables,
                            const Ptr<Counter::OvixLfibCounterCollection>& counterCollection) {
    return MplsIpViaTypeHandler::MplsIpViaTypeHandlerIs(viaType, lfibTables, counterCollection);
}

Ptr<RewriteInfos> MplsIpViaTypeHandler::createRewrites(const Ptr<MplsContext>& context,
                                                       const OvixMplsVia& via, bool multicast) {
    assert(via);
    const Ptr<RoutingContext>& routingContext = context->routingContext();
    Ptr<RewriteInfos> rewrites = MplsRewriteHelper::createMplsRewrite(
        routingContext, context->entry(), context->packetHeader(), via.action(),
        via.labelOperation(), via.payload(), via.ttl(), multicast);
    if (rewrites) {
        const auto bytes =
            static_cast<std::uint32_t>(routingContext->packetContext()->pkt()->bytes());
        rewrites->finalCounterActionInfoEnq(Tessel::make<LfibCounterActionInfo>(
            Mpls::RouteKey::fromLabel(context->entry().label()), bytes));
    }
    return rewrites;
}

ProcessingResult MplsIpViaTypeHandler::processMplsVia(const Ptr<MplsContext>& context) {
    return context->viaSet()->isMulticast() ? doProcessMplsMulticastVia(context)
                                            : doProcessMplsVia(context);
}

ProcessingResult MplsIpViaTypeHandler::doProcessMplsVia(const Ptr<MplsContext>& context) {
    Tessel::hardAssert(context->viaIndex().has_value(), "viaIndex must be set for transit vias");
    const OvixMplsVia via = context->viaSet()->via(*context->viaIndex());
    if (!via) {
        report(*context->routingContext(), noVia);
        return frameDealtWith;
    }
    Ptr<RewriteInfos> rewrites = createRewrites(context, via, false);
    if (!rewrites) {
        report(*context->routingContext(), noRewrite);
        return frameDealtWith;
    }
    RoutingNexthop& nexthop = *context->nexthops()->nexthopFront();
    copyNexthop(via, nexthop);
    nexthop.rewriteInfos().copyFrom(std::move(rewrites));
    return frameDealtWith;
}

ProcessingResult MplsIpViaTypeHandler::doProcessMplsMulticastVia(const Ptr<MplsContext>& context) {
    const RoutingNexthop& front = firstNexthop(*context);
    Tessel::hardAssert(context->viaIndex().has_value(), "viaIndex must be set for transit vias");
    const OvixMplsVia via = context->viaSet()->via(*context->viaIndex());
    if (!via) {
        report(*context->routingContext(), noVia);
        return frameDealtWith;
    }
    Ptr<RewriteInfos> rewrites = createRewrites(context, via, true);
    if (!rewrites) {
        report(*context->routingContext(), noRewriteForMulticast);
        return frameDealtWith;
    }
    auto replica = Tessel::make<RoutingNexthop>(via.intfId);
    copyNexthop(via, *replica);
    replica->isReplicaIs(true);
    replica->rewriteInfos().copyFrom(front.rewriteInfos());
    replica->rewriteInfos().copyFrom(std::move(rewrites));
    context->nexthops()->nexthopEnq(std::move(replica));
    return frameDealtWith;
}

} // namespace Ovix
