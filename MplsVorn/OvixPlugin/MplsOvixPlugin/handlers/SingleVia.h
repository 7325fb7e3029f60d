#pragma once

#include "FrameEvents.h"
#include "Ovix/viaset/MplsContext.h"

namespace Ovix {

// What the handlers of vias that stand alone in their set have in common.

/// A set of several vias, or of none.
inline constexpr FrameEvent moreThanOneVia{FrameCategory::drop, "More than 1 via"};

/// The next hop to fill; that there are several is reported.
inline RoutingNexthop& firstNexthop(const MplsContext& context) {
    const RoutingNexthops& nexthops = *context.nexthops();
    if (nexthops.size() > 1) [[unlikely]] {
        reportWithValues(*context.routingContext(), severalNexthops, nexthops.size());
    }
    return *nexthops.nexthopFront();
}

} // namespace Ovix
