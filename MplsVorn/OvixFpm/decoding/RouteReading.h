#pragma once

#include <vector>

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

// What the two are read with; exported for their tests. All throw Malformed.

/// What a route message is about.
enum class RouteFamily : std::uint8_t { label, ipv4, ipv6 };

/// The labels of an attribute, outermost first. Throws Malformed, naming the field, unless they are
/// whole label stack entries (RFC 3032), at least one, the last and only the last marked as the
/// bottom, with TC and TTL zero as routes have them.
std::vector<Lumo::MplsLabel> labelStack(Bytes value, Field field);

/// An address of the family. Throws Malformed, naming the field, when the value has another size.
Lumo::IpGenAddr address(Lumo::IpFamily family, Bytes value, Field field);

/// The next hops of a route: those of RTA_MULTIPATH, weighted (the weight is one more than
/// rtnh_hops), or the one in the message itself. Throws Malformed, also when the message has both,
/// or refers to a next hop group.
std::vector<NextHop> nextHopsOf(RouteFamily family, const Attributes& attributes);

} // namespace OvixFpm
