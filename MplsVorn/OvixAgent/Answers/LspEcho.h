#pragma once

#include <cstdint>
#include <vector>

#include "Answers/Answer.h"
#include "Answers/LspEchoValidation.h"
#include "State/Frame.h"

namespace OvixAgent {

/// Whether a packet is an MPLS echo message (RFC 8029 section 4.3): a whole UDP datagram with a
/// valid checksum to port 3503 of 127.0.0.0/8 or ::ffff:127.0.0.0/104.
bool isLspEcho(const LabelledPacket& received);

/// The MPLS echo reply (RFC 8029 section 4.5) to a request received at `time`: an IP packet to the
/// request's source. Empty when the packet is not a request, requests no reply, or `own` has no
/// address of its family.
///
/// A reply with router alert that is sent along an LSP needs a router alert label on top.
std::vector<std::uint8_t> lspEchoReply(const LabelledPacket& received, const CaptureTime& time,
                                       const EchoTables& tables, const OwnAddresses& own);

/// A time in the format of NTP (RFC 5905 section 6): seconds since 1900 and their fraction, 32 bits
/// each. The seconds wrap in 2036.
std::uint64_t ntpTime(const CaptureTime& time) noexcept;

} // namespace OvixAgent
