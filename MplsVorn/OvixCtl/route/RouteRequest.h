#pragma once

#include <string>
#include <vector>

#include "Config/ConfigTypes.h"
#include "Mpls/TableDirectory.h"
#include "Tessel/Result.h"

namespace OvixCtl {

/// A route as a command line gives it, in the shape of a configuration: its ports are the
/// interfaces that the route names.
struct RouteRequest {
    Mpls::TableId table = Mpls::TableId::transitLfib;
    OvixAgent::LfibRouteConfig route;
    OvixAgent::AgentConfig interfaces;
};

/// Parses, after `ip -f mpls route add`:
///   LABEL [table TABLE] HOP | LABEL [table TABLE] nexthop HOP nexthop HOP ...
///   HOP: [as [to] L1[/L2...] | push L1[/L2...]] [via [inet|inet6] ADDRESS] [dev INTERFACE]
///        [weight N]
///   LABEL [table TABLE] vrf NAME [payload ipv4|ipv6|auto]
/// The table is decap for a route with vrf, transit for every other, unless it is named.
/// Refuses other words, naming them.
Tessel::Result<RouteRequest> parseRoute(const std::vector<std::string>& words);

/// LABEL [table TABLE]
Tessel::Result<RouteRequest> parseRouteKey(const std::vector<std::string>& words);

} // namespace OvixCtl
