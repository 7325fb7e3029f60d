#pragma once

#include "decoding/NextHop.h"
#include "decoding/RouteValues.h"
#include "framing/Attributes.h"

namespace OvixFpm {

/// The next hops of a route: those of RTA_MULTIPATH, weighted (the weight is one more than
/// rtnh_hops), or the one that the message itself has. Throws Malformed or RangeError, also when
/// the message has both, or refers to a next hop group: what such a group consists of is not in the
/// message.
NextHops nextHopsOf(RouteFamily family, const Attributes& attributes);

} // namespace OvixFpm
