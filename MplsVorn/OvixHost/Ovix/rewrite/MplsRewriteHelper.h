#pragma once

#include "Lumo/MplsLabelOperation.h"
#include "Mpls/Types.h"
#include "Ovix/routing/RewriteInfo.h"
#include "Ovix/routing/RoutingContext.h"

namespace Ovix {

/// Turns label operations into rewrite lists.
struct MplsRewriteHelper {
    /// The rewrites that do `action` to the entry on top of the stack. `innerHeader` is what
    /// follows the stack and may be empty. `multicast` is set for a replica, which is rewritten
    /// like any other frame. Empty when it cannot be done: an unknown action, no labels to push or
    /// swap in, an implicit null among them, or a pop that exposes an unknown payload.
    static Ptr<RewriteInfos>
    createMplsRewrite(const Ptr<RoutingContext>& context, Lumo::MplsLabelEntry entry,
                      const Ptr<PacketHeader>& innerHeader, Lumo::MplsLabelAction action,
                      const Lumo::UnboundedMplsLabelOperation& operation, Mpls::PayloadType payload,
                      Mpls::TtlMode ttlMode, bool multicast);

    /// The rewrites that pop the entry on top. `ipExposed`: the entry is the last one and an IP
    /// packet of the payload type lies beneath. Empty when the last entry is popped with
    /// nothing beneath it and no payload type. A pop above the bottom of the stack is noted in the
    /// context, if there is one: RoutingContext::popIsPending.
    static Ptr<RewriteInfos> createMplsPopRewrite(const Ptr<RoutingContext>& context,
                                                  Lumo::MplsLabelEntry entry,
                                                  const Ptr<PacketHeader>& innerHeader,
                                                  Mpls::PayloadType payload, Mpls::TtlMode ttlMode,
                                                  bool ipExposed);
};

} // namespace Ovix
