#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Lumo/IpGenAddr.h"
#include "Lumo/MplsLabel.h"
#include "Published/IpRoutes.h"

namespace OvixFpm {

/// One next hop of a route, as zebra gives it: the interface is the kernel's index, and may be a
/// VRF device, in whose table the payload is looked up. Its labels, outermost first, replace the
/// incoming one in a label route and are pushed in an IP route; none means that the label is popped
/// (the neighbour advertised implicit null), respectively that nothing is pushed. Explicit null is
/// a label like any other.
struct NextHop {
    std::vector<Lumo::MplsLabel> labels; ///< without implicit null (RFC 3032)
    Lumo::IpGenAddr gateway;             ///< of no family: packets go out of the interface as is
    std::uint32_t interface = 0;         ///< 0: unset, then there is a gateway
    std::uint16_t weight = 1;            ///< 1 to 256

    bool hasGateway() const noexcept { return gateway.family() != Lumo::IpFamily::none; }
    bool isInterfaceOnly() const noexcept { return labels.empty() && !hasGateway(); }

    friend bool operator==(const NextHop&, const NextHop&) = default;
};

/// Why packets of a prefix are not sent on: silently dropped, refused with an ICMP error (host
/// unreachable, administratively prohibited), or because they are for this router itself.
enum class RouteEnd : std::uint8_t { blackhole, unreachable, prohibit, local };

/// Where a route leads: to next hops, or to an end. It replaces an earlier route for the same
/// destination.
struct Route {
    std::uint8_t protocol = 0;         ///< the kernel's number for who made the route (RTPROT_…)
    std::vector<NextHop> nextHops;     ///< in zebra's order; empty exactly when `end` is set
    std::optional<RouteEnd> end;       ///< of an IP route
    std::optional<bool> ttlPropagated; ///< of a label route: uniform mode (RFC 3443), if it says so

    friend bool operator==(const Route&, const Route&) = default;
};

/// A label that is not a special-purpose one (RFC 7274), or a prefix in a routing table.
using Destination = std::variant<Lumo::MplsLabel, L3::RouteKey>;

/// One change of the routes.
struct RouteChange {
    Destination to;
    std::optional<Route> route; ///< unset: withdrawn

    friend bool operator==(const RouteChange&, const RouteChange&) = default;
};

/// "[100/200] via 192.0.2.2 interface 3 weight 1": labels outermost first.
std::string text(const NextHop& hop);
/// "label 1000" or "203.0.113.0/24 table 254".
std::string text(const Destination& destination);
/// One line, for logs: "label 1000 protocol 196: HOP, HOP", "203.0.113.0/24 table 254 protocol 196:
/// HOP", "… protocol 196: blackhole", "label 1000 withdrawn".
std::string text(const RouteChange& change);

} // namespace OvixFpm
