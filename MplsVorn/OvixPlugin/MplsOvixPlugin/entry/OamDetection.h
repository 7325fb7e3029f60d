#pragma once

#include "Ovix/routing/RoutingContext.h"

namespace Ovix {

/// Whether the header starts an LSP ping (RFC 8029): an IP packet to a loopback address and UDP
/// port 3503. Completes the parse; `header` may be empty.
bool isLspPing(const RoutingContext& context, const Ptr<PacketHeader>& header);

} // namespace Ovix
