#pragma once

#include "Tessel/Result.h"
#include "decoding/Routes.h"
#include "framing/Attributes.h"

namespace OvixFpm {

/// The change that a message of type RTM_NEWROUTE brings, from what follows its netlink header.
/// Refuses an invalid message with the reason; also a route through a next hop group, since the
/// message does not list the group's members.
Tessel::Result<RouteChange> readNewRoute(Bytes body);

/// Likewise for RTM_DELROUTE, of which only family, table and destination matter.
Tessel::Result<RouteChange> readDeletedRoute(Bytes body);

} // namespace OvixFpm
