#pragma once

#include <vector>

#include "Lumo/IpGenAddr.h"
#include "Lumo/MplsLabel.h"
#include "framing/Attributes.h"

namespace OvixFpm {

/// What a route message is about.
enum class RouteFamily : std::uint8_t { label, ipv4, ipv6 };

/// The labels of an attribute, outermost first. Throws Malformed, naming the field, unless they are
/// whole label stack entries (RFC 3032), at least one, the last and only the last marked as the
/// bottom, with TC and TTL zero as routes have them.
std::vector<Lumo::MplsLabel> labelStack(Bytes value, Field field);

/// An address of the family as it stands in an attribute. Throws Malformed, naming the field, when
/// its size is another.
Lumo::IpGenAddr address(Lumo::IpFamily family, Bytes value, Field field);

/// The gateway of a next hop; the address of no family when there is none. Routes of labels have it
/// in RTA_VIA; IPv4 routes too when it is an IPv6 address (RFC 8950), otherwise in RTA_GATEWAY.
/// Throws Malformed.
Lumo::IpGenAddr gatewayOf(RouteFamily family, const Attributes& attributes);

/// The labels of a next hop: swapped to by a route of labels, pushed by another; empty for none.
/// Throws Malformed, also for an encapsulation other than MPLS.
std::vector<Lumo::MplsLabel> labelsOf(RouteFamily family, const Attributes& attributes);

} // namespace OvixFpm
