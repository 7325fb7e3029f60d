#pragma once

#include <optional>

#include "Lumo/EthAddr.h"
#include "Ovix/packet/PacketContext.h"

namespace OvixAgent {

/// The group address that a multicast packet goes to everybody on a link with: a labelled one by
/// its top label (01-00-5e-8x-xx-xx, RFC 5332 section 8), an IP multicast packet by its destination
/// (RFC 1112 section 6.4, RFC 2464 section 7). None for anything else.
std::optional<Lumo::EthAddr> groupMac(Ovix::PacketContext& packet);

} // namespace OvixAgent
