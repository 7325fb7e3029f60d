#pragma once

#include "Ovix/packet/PacketContext.h"
#include "State/Fate.h"

namespace OvixAgent {

/// Takes what stands in front of the Ethernet frame of a pseudowire off, once its label is popped:
/// the control word, when the pseudowire has one. Forwarded: the packet is the customer's frame.
///
/// With a control word (RFC 4385) its first nibble decides: 0 is data, whose other bits an Ethernet
/// pseudowire ignores on receipt (RFC 4448 section 4.6); 1 is a message of the pseudowire's
/// associated channel (RFC 5085), punted; anything else is dropped.
///
/// Without one the frame is the payload as it is. A control word that the other end sends all the
/// same is told from a destination address only by what else does not fit: see the source. Such a
/// frame is dropped, since passed on it would reach the customer four bytes out of place.
Fate uncoverEthernet(Ovix::PacketContext& packet, bool controlWord);

} // namespace OvixAgent
