#include "entry/MplsRoutingHandler.h"

#include "FrameEvents.h"
#include "MplsOvixPlugin.h"

namespace Ovix {

namespace {

constexpr FrameEvent routingNotEnabled{FrameCategory::drop, "Mpls routing not enabled"};

} // namespace

void MplsRoutingHandler::processPacket(const Ptr<RoutingOutput>& output,
                                       const Ptr<RoutingContext>& context,
                                       const Ptr<PacketHeader>& header,
                                       const Ptr<RoutingVrfRoot>& vrfRoot) {
    if (plugin_->mplsRoutingInfo()->mplsRoutingEnabled()) [[likely]] {
        plugin_->handleMplsFrame(output, context, header, vrfRoot);
        return;
    }
    report(*context, routingNotEnabled);
}

} // namespace Ovix
