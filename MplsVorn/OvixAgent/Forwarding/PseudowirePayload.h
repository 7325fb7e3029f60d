#pragma once

#include "Ovix/packet/PacketContext.h"
#include "State/Fate.h"

namespace OvixAgent {

/// Removes the control word of a pseudowire packet whose label has been popped, when the pseudowire
/// has one. Forwarded: the packet is the customer's frame.
///
/// The first nibble of a control word (RFC 4385) is 0 for data, whose other bits an Ethernet
/// pseudowire ignores on receipt (RFC 4448 section 4.6), and 1 for the associated channel (RFC
/// 5085), which is punted; anything else is dropped.
///
/// Without a control word the payload is the frame. When the other end sends a control word all the
/// same, only the frame behind it tells that from a destination address: see the source. Such a
/// packet is dropped, since it would reach the customer shifted by four bytes.
Fate removeControlWord(Ovix::PacketContext& packet, bool hasControlWord);

} // namespace OvixAgent
