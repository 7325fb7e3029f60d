#pragma once

#include <cstdint>
#include <vector>

#include "Answers/Answer.h"
#include "Answers/LabelledPacket.h"

namespace OvixAgent {

/// An error to tell a packet's source by ICMP (RFC 792) or ICMPv6 (RFC 4443).
struct IcmpError {
    std::uint8_t type = 0;
    std::uint8_t code = 0;
    std::uint32_t value = 0;      ///< the 32 bits behind the checksum
    bool mayAnswerGroups = false; ///< also packets to multicast addresses (RFC 4443 section 2.4)
    bool tellsLabelStack = false; ///< with the label stack of the packet (RFC 4950)
};

/// The IP packet that tells the error; empty when none must be sent (RFC 1812 section 4.3.2.7,
/// RFC 4443 section 2.4): in answer to an ICMP error or redirect, to a fragment that is not the
/// first, to what was sent to a group, or to a source that is no single host or has an address that
/// no router forwards to: an IPv4 link-local (RFC 3927 section 7) or an IPv4-mapped one; nor
/// without an address of one's own. An IPv6 link-local source may be answered on its link, which
/// is for the caller to know, as are the broadcast addresses of subnets.
///
/// It quotes as much of the packet as fits in 576 bytes, in IPv6 1280. Where the label stack
/// follows as an extension object it quotes 128 bytes, filled up with zeros, and tells that length
/// (RFC 4884); a stack too deep for that is left out.
std::vector<std::uint8_t> icmpErrorPacket(const IcmpError& error, const LabelledPacket& received,
                                          const OwnAddresses& own);

/// The ICMP (RFC 792) or ICMPv6 (RFC 4443) time exceeded message for a packet whose TTL is spent,
/// from the frame as it came in; a label stack is told with it (RFC 4950). Empty when none must be
/// sent: see icmpErrorPacket(). Whether the TTL is spent is for the caller to know.
///
/// The result is a whole IP packet; answerTo() says how it gets to the source.
std::vector<std::uint8_t> icmpTimeExceeded(const LabelledPacket& received, const OwnAddresses& own);

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
