#pragma once

#include <cstdint>
#include <vector>

#include "Answers/Answer.h"
#include "Answers/LabelledPacket.h"
#include "Answers/LspEchoValidation.h"
#include "State/Frame.h"

namespace OvixAgent {

/// Whether a packet is for the MPLS echo port (RFC 8029 section 4.3): whole UDP to port 3503 of
/// 127.0.0.0/8 or ::ffff:127.0.0.0/104, whose checksum is right.
bool isLspEcho(const LabelledPacket& received);

/// The MPLS echo reply (RFC 8029 section 4.5) to an echo request that came in at a time, as a whole
/// IP packet to be routed to the request's source. Empty when there is no request to reply to, or
/// it asks for no reply, or there is no address of one's own.
///
/// A reply with router alert that is sent along an LSP needs a router alert label on top.
std::vector<std::uint8_t> lspEchoReply(const LabelledPacket& received, const CaptureTime& time,
                                       const EchoTables& tables, const OwnAddresses& own);

/// A time as NTP tells it (RFC 5905 section 6): seconds since 1900 and their fraction, 32 bits
/// each. The seconds wrap in 2036.
std::uint64_t ntpTime(const CaptureTime& time) noexcept;

} // namespace OvixAgent
