#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Tessel/Result.h"
#include "decoding/Routes.h"

namespace OvixFpm {

/// What vtysh is to ask zebra of an IPv6 route.
std::string routeQuestion(const L3::RouteKey& key, std::string_view vrf);

/// What zebra has answered to so many questions, in their order: of each route the next hops that
/// have an IPv4 address. Refused as a whole when it is not that.
Tessel::Result<std::vector<std::vector<NextHop>>> readRouteAnswers(const std::string& text,
                                                                   std::size_t questions);

} // namespace OvixFpm
