#pragma once

#include <cstdint>
#include <vector>

#include "Answers/LspEchoValidation.h"

namespace OvixAgent {

/// An MPLS echo reply as it stands in its UDP datagram: the request's handle, sequence number and
/// time stamp come back in it, and so do its pad TLVs, TLVs that were not understood among the
/// errored TLVs (RFC 8029 section 3.8), and when it asks for them the downstreams (section 3.4).
/// `received` is the request's time by ntpTime().
std::vector<std::uint8_t> echoReplyBytes(const LspEchoRequest& request, const EchoVerdict& verdict,
                                         std::uint64_t received);

} // namespace OvixAgent
