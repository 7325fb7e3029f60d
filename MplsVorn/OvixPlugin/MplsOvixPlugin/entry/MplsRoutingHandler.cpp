#include "entry/MplsRoutingHandler.h"

#include <cassert>

#include "FrameEvents.h"
#include "MplsOvixPlugin.h"

namespace Ovix {

namespace {

constexpr FrameEvent routingNotEnabled{FrameCategory::drop, "Mpls routing not enabled"};
constexpr FrameEvent noMplsHeaderData{FrameCategory::drop, "No mplsHeaderData"};

void punt(const RoutingOutput& output, const Ptr<RoutingNexthop>& nexthop) {
    nexthop->setCpuTrapNexthop();
    output.nexthops()->nexthopEnq(nexthop);
}

} // namespace

void MplsRoutingHandler::processPacket(const Ptr<RoutingOutput>& output,
                                       const Ptr<RoutingContext>& context,
                                       const Ptr<PacketHeader>& header,
                                       const Ptr<RoutingVrfRoot>& vrfRoot) {
    assert(plugin_->mplsRoutingInfo());
    if (plugin_->mplsRoutingInfo()->mplsRoutingEnabled()) [[likely]] {
        plugin_->handleMplsFrame(output, context, header, vrfRoot);
        return;
    }
    report(*context, routingNotEnabled);
}

Ptr<PacketHeader> MplsOvixPlugin::headerAfter(const RoutingContext& context,
                                              const PacketHeader& header) {
    return context.packetContext()->parsedPkt().header(header.position() + 1);
}

void MplsOvixPlugin::handleMplsFrame(const Ptr<RoutingOutput>& output,
                                     const Ptr<RoutingContext>& context,
                                     const Ptr<PacketHeader>& header,
                                     const Ptr<RoutingVrfRoot>&) const {
    assert(header && context->packetContext());
    const Ptr<MplsHeaderData> labels(mplsHeaderData(*header));
    if (!labels) {
        report(*context, noMplsHeaderData);
        return;
    }
    auto nexthop = Tessel::make<RoutingNexthop>(Lumo::IntfId());
    if (checkForOam(context, header, labels)) {
        report(*context, oamPacket);
        punt(*output, nexthop);
        return;
    }
    const Ptr<PacketHeader> innerHeader = headerAfter(*context, *header);
    const Ptr<OvixMplsViaSetStack> viaSets = resolveViaSetsForLabelStack(context, labels);
    if (viaSets->empty() && nexthop->unresolved()) {
        report(*context, nothingResolved);
        return;
    }
    auto nexthops = Tessel::make<RoutingNexthops>();
    nexthops->nexthopEnq(std::move(nexthop));
    processViaSetStack(context, nexthops, innerHeader, viaSets);
    for (const Ptr<RoutingNexthop>& filled : *nexthops) {
        if (!filled->unresolved()) {
            output->nexthops()->nexthopEnq(filled);
        }
    }
}

} // namespace Ovix
