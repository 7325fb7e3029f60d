#pragma once

#include <string>

#include "route/IntfText.h"
#include "route/RouteView.h"

namespace OvixCtl {

/// An entry on one line, after `ip -f mpls route`: "transit 100 as to 200/300 via inet 10.0.2.2 dev
/// east", with `nexthop` before each of several vias. No `as` means pop.
std::string routeText(const RouteView& route, const IntfText& interfaces);

} // namespace OvixCtl
