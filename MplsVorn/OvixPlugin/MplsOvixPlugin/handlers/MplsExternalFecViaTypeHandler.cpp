#include "handlers/MplsExternalFecViaTypeHandler.h"

#include "FrameEvents.h"
#include "Ovix/rewrite/MplsRewriteHelper.h"
#include "Tessel/Fib/FecId.h"

namespace Ovix {

namespace {

constexpr FrameEvent invalidLabelAction{FrameCategory::drop, "Invalid label action %s"};

bool isPushOrSwap(std::uint32_t labelAction) noexcept {
    constexpr auto push = static_cast<std::uint32_t>(Lumo::MplsLabelAction::push);
    constexpr auto swap = static_cast<std::uint32_t>(Lumo::MplsLabelAction::swap);
    return labelAction == push || labelAction == swap;
}

Lumo::IntfId egressOf(const OvixMplsVia& via) noexcept {
    const Tessel::Fib::FecId fec(via.fecId());
    return fec ? Tessel::Fib::FecId::fecIdToHierarchicalIntfId(fec) : via.intfId;
}

} // namespace

MplsExternalFecViaTypeHandler::MplsExternalFecViaTypeHandler(Mpls::LfibViaType viaType,
                                                             const Ptr<MplsLfibTables>& lfibTables)
    : MplsViaTypeHandler(viaType), lfibTables_(lfibTables) {}

Ptr<MplsExternalFecViaTypeHandler> MplsExternalFecViaTypeHandler::MplsExternalFecViaTypeHandlerIs(
    Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables) {
    return Tessel::make<MplsExternalFecViaTypeHandler>(viaType, lfibTables);
}

Ptr<MplsExternalFecViaTypeHandler>
mplsExternalFecViaTypeHandlerFactory(Mpls::LfibViaType viaType,
                                     const Ptr<MplsLfibTables>& lfibTables) {
    return MplsExternalFecViaTypeHandler::MplsExternalFecViaTypeHandlerIs(viaType, lfibTables);
}

ProcessingResult MplsExternalFecViaTypeHandler::processMplsVia(const Ptr<MplsContext>& context) {
    const Ptr<RoutingContext>& routing = context->routingContext();
    if (context->viaSet()->numVias() != 1) {
        report(*routing, moreThanOneVia);
        return frameDealtWith;
    }
    const OvixMplsVia via = context->viaSet()->via(0);
    if (!isPushOrSwap(via.labelAction)) {
        reportWithValues(*routing, invalidLabelAction, via.labelAction);
        return frameDealtWith;
    }
    const Ptr<RewriteInfos> rewrites = MplsRewriteHelper::createMplsRewrite(
        routing, context->entry(), context->packetHeader(), via.action(), via.labelOperation(),
        via.payload(), via.ttl(), false);
    if (!rewrites) {
        report(*routing, noRewrite);
        return frameDealtWith;
    }
    RoutingNexthop& nexthop = firstNexthop(*context);
    nexthop.intfIdIs(egressOf(via));
    nexthop.rewriteInfos().copyFrom(rewrites);
    return frameDealtWith;
}

} // namespace Ovix
