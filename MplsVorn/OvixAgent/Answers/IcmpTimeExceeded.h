#pragma once

#include <cstdint>
#include <vector>

#include "Answers/LabelledPacket.h"
#include "Answers/OwnAddresses.h"

namespace OvixAgent {

/// The ICMP (RFC 792) or ICMPv6 (RFC 4443) time exceeded message for a packet whose TTL is spent,
/// from the frame as it came in; a label stack is told with it (RFC 4950). Empty when none must be
/// sent: see icmpErrorPacket(). Whether the TTL is spent is for the caller to know.
///
/// The result is a whole IP packet; answerTo() says how it gets to the source.
std::vector<std::uint8_t> icmpTimeExceeded(const LabelledPacket& received, const OwnAddresses& own);

} // namespace OvixAgent
