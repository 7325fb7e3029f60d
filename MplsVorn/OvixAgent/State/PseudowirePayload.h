#pragma once

#include "Wire/View.h"

namespace OvixAgent {

/// Whether frames have that EtherType in practice: what stands there in a frame that is read at the
/// wrong place rarely is one.
bool isWellKnownEtherType(std::uint32_t etherType) noexcept;

/// How the payload of a label stack reads that is no IP packet. A control word begins with four
/// zero bits (RFC 4385 section 3), and so does a frame without one whose destination address begins
/// with 0; the EtherType tells them apart where just one of its two places has a well-known one.
enum class PayloadSigns : std::uint8_t {
    controlWord, ///< an Ethernet frame behind four bytes
    ethernet,    ///< an Ethernet frame from its first byte on
    unknown,     ///< neither, or either
};
PayloadSigns payloadSigns(Wire::Bytes payload) noexcept;

/// Whether the payload of a label stack reads as an IP packet. An Ethernet frame may begin with the
/// same four bits; it is one where its EtherType is well-known, and the IP header contradicts
/// itself.
bool isIpPayload(Wire::Bytes payload) noexcept;

} // namespace OvixAgent
