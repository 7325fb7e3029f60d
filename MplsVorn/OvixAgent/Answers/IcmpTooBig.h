#pragma once

#include <cstdint>
#include <vector>

#include "Answers/LabelledPacket.h"
#include "Answers/OwnAddresses.h"

namespace OvixAgent {

/// The ICMP fragmentation needed (RFC 1191) or ICMPv6 packet too big (RFC 4443 section 3.2) message
/// for a packet that did not fit through an egress, from the frame as it would have left. It tells
/// the egress MTU less the label stack, but no less than what each family's links must carry: 68
/// and 1280 bytes.
///
/// Empty when none must be sent (see icmpErrorPacket()), when an IPv4 packet may be fragmented, and
/// when the packet fits in what would be told. answerTo(), given the frame as it came in, says how
/// it gets to the source: the labels that it would have left with lead there from the next router.
std::vector<std::uint8_t> icmpTooBig(const LabelledPacket& leaving, std::uint32_t egressMtu,
                                     const OwnAddresses& own);

} // namespace OvixAgent
