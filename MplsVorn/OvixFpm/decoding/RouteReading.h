#pragma once

#include "decoding/Routes.h"
#include "framing/Bytes.h"

namespace OvixFpm {

/// The change that a message of type RTM_NEWROUTE brings, from what follows its netlink header.
/// Throws Malformed or RangeError when it makes no sense; `what()` is why.
RouteChange newRoute(Bytes body);

/// Likewise for RTM_DELROUTE: family, table and destination count, the rest of the message does
/// not.
RouteChange deletedRoute(Bytes body);

} // namespace OvixFpm
