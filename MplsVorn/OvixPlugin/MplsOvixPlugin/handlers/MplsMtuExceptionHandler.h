#pragma once

#include "Ovix/routing/Handlers.h"

namespace Ovix {

/// Hands MPLS frames that are too big for their egress interface to the control plane: a copy goes
/// to the interface "lo" as an exception frame. Counts "Exceptional" / "Mpls mtu exception
/// handler.". A copy that cannot be sent is not reported.
///
///     0                12        14                     n            n + 8        n + 16
///     +----------------+---------+----------------------+------------+------------+
///     | MAC addresses  | 0x8139  | the rest of the frame | egress id  | packet id  |
///     +----------------+---------+----------------------+------------+------------+
///
/// n is the length of the frame. The EtherType replaces the frame's own; the interface id
/// and the routing context's packet id, which names the frame in traces, are 64-bit numbers in host
/// byte order.
class MplsMtuExceptionHandler : public MtuExceptionHandler {
  public:
    MplsMtuExceptionHandler() : MtuExceptionHandler("Mpls") {}

    void handle(const Ptr<RoutingContext>& context, Lumo::IntfId egress) override;
};

} // namespace Ovix
