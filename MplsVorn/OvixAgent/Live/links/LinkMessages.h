#pragma once

#include <optional>

#include "Live/links/LinkState.h"

struct nlmsghdr;

namespace OvixAgent {

/// The interface that an RTM_NEWLINK or RTM_DELLINK message is about. Nothing when the message is
/// malformed, or tells of an interface's part in a bridge, where "deleted" means taken out of it.
std::optional<LinkState> readLinkMessage(const nlmsghdr& message);

/// The neighbour that an RTM_NEWNEIGH or RTM_DELNEIGH message is about. Nothing when the message is
/// malformed, or about anything but an IPv4 or IPv6 neighbour.
std::optional<NeighbourState> readNeighbourMessage(const nlmsghdr& message);

} // namespace OvixAgent
