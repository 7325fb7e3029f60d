#pragma once

#include <algorithm>
#include <string_view>

#include "Ip/IpPacket.h"
#include "State/Fate.h"
#include "State/Fib.h"
#include "State/PortTable.h"

namespace OvixAgent {

/// Whether the routes of a port's VRF lead back to `source` as the port asks for (RFC 3704 section
/// 2). A default route counts, and a route that drops does not.
inline bool isReverseRouted(const Fib& fib, const Lumo::IpGenAddr& source, ReversePath asked,
                            PortIndex port) noexcept {
    const IpRoute* const route = fib.find(source);
    if (route == nullptr || route->drops()) {
        return false;
    }
    const std::vector<IpRouteVia>& vias = route->vias();
    return asked == ReversePath::loose ||
           std::any_of(vias.begin(), vias.end(),
                       [port](const IpRouteVia& via) { return via.port == port; });
}

/// Why a packet from the host `source`, which is routed by `fib`, goes no further: empty when it
/// may. It came in at `port`, whose reverse-path check is `asked`: off when a label has brought it
/// into the VRF.
inline std::string_view sourceFault(const Fib& fib, const Lumo::IpGenAddr& source,
                                    ReversePath asked, PortIndex port) noexcept {
    if (fib.ownHosts().contains(source)) [[unlikely]] {
        return Reason::martianSource;
    }
    if (asked != ReversePath::off && !isReverseRouted(fib, source, asked, port)) [[unlikely]] {
        return asked == ReversePath::loose ? Reason::noReverseRoute : Reason::reversePath;
    }
    return {};
}

} // namespace OvixAgent
