#pragma once

#include "Ovix/packet/PacketContext.h"
#include "State/Fate.h"
#include "State/Pseudowires.h"

namespace OvixAgent {

/// Removes the flow label (RFC 6391) of a packet whose pseudowire label has been popped: the last
/// one of its stack. Forwarded: the packet starts with the control word or the customer's frame.
Fate removeFlowLabel(Ovix::PacketContext& packet);

/// Removes the control word of a packet whose labels have been popped, when `pseudowire` has one;
/// null: the label leads to a port without a pseudowire. Forwarded: the packet is the customer's
/// frame.
///
/// The first nibble of a control word (RFC 4385) is 0 for data, whose other bits an Ethernet
/// pseudowire ignores on receipt (RFC 4448 section 4.6), and 1 for the associated channel (RFC
/// 4385 section 5), which is punted however short its message is; anything else is dropped. Without
/// a control word the payload is the frame, whatever it starts with: so the ends have agreed (RFC
/// 4447 section 6).
Fate removeControlWord(Ovix::PacketContext& packet, const Pseudowire* pseudowire);

} // namespace OvixAgent
