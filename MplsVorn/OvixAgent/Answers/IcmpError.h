#pragma once

#include <cstdint>
#include <vector>

#include "Answers/Answer.h"

namespace OvixAgent {

// ICMP (RFC 792) and ICMPv6 (RFC 4443) errors, as whole IP packets to the packet's source; see
// answerTo() for their path.
//
// No error is sent (RFC 1812 section 4.3.2.7, RFC 4443 section 2.4) about an ICMP error or
// redirect, a fragment other than the first, or a packet to a group; to a source that is not a
// single host or is an IPv4 link-local (RFC 3927 section 7) or IPv4-mapped address; and without an
// own address. The result is then empty. Left to the caller: IPv6 link-local sources, which may be
// answered on their link, and broadcast addresses of subnets.
//
// An error quotes as much of the packet as fits in 576 bytes, in IPv6 1280. With the label stack as
// an extension object it quotes 128 bytes, padded with zeros, since there are readers that look
// for the object just behind those (RFC 4884 section 5); a stack too deep for that is left out.

/// Time exceeded, with the label stack of the packet as it was received (RFC 4950). The caller
/// knows that the TTL has expired.
std::vector<std::uint8_t> icmpTimeExceeded(const LabelledPacket& received, const OwnAddresses& own);

/// Why a packet was not delivered.
enum class Unreachable : std::uint8_t { noRoute, noNeighbour, byRoute, prohibited };

/// Destination unreachable (RFC 1812 section 5.2.7.1, RFC 4443 section 3.1), with the label stack
/// of the packet as it was received (RFC 4950).
std::vector<std::uint8_t> icmpUnreachable(const LabelledPacket& received, Unreachable why,
                                          const OwnAddresses& own);

/// Fragmentation needed (RFC 1191) or packet too big (RFC 4443 section 3.2), for a packet as it
/// would have left. The MTU reported is the egress MTU less the label stack, but at least the
/// family's minimum, 68 or 1280 bytes. Also empty when an IPv4 packet may be fragmented, and when
/// the packet fits in that MTU.
std::vector<std::uint8_t> icmpTooBig(const LabelledPacket& leaving, std::uint32_t egressMtu,
                                     const OwnAddresses& own);

} // namespace OvixAgent
