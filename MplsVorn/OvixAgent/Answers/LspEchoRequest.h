#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "Lumo/IpGenAddr.h"

namespace OvixAgent {

/// One element of a target FEC stack: a prefix that LDP binds a label to, or with an address of no
/// family the Nil FEC, which stands for a label that belongs to no FEC.
struct EchoFec {
    Lumo::IpGenAddr prefix;
    std::uint8_t length = 0;

    bool isNil() const noexcept { return prefix.family() == Lumo::IpFamily::none; }
};

/// An MPLS echo request (RFC 8029 section 3):
///
///      0                   1                   2                   3
///      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |         Version Number        |         Global Flags          |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |  Message Type |   Reply mode  |  Return Code  | Return Subcode|
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |                        Sender's Handle                        |
///     |                        Sequence Number                        |
///     |              TimeStamp Sent (seconds, fraction)               |
///     |            TimeStamp Received (seconds, fraction)             |
///     |                            TLVs ...                           |
struct LspEchoRequest {
    static constexpr std::size_t headerSize = 32;

    /// What keeps a request from being validated.
    enum class Fault : std::uint8_t { none, malformed, notUnderstood };

    /// From the payload of a UDP datagram. Empty when there is no whole header, or it is one of
    /// another kind of message.
    static std::optional<LspEchoRequest> read(std::span<const std::uint8_t> payload);

    // The values are good whatever the fault.
    std::uint8_t replyMode = 0;
    bool validatesFecs = false;             ///< also in transit: the V flag
    bool onlyIfTtlExpired = false;          ///< the T flag (RFC 6425 section 3.4)
    std::span<const std::uint8_t> returned; ///< handle, sequence number and the time it was sent
    Fault fault = Fault::none;

    // What the TLVs say, as far as they are sound.
    std::vector<EchoFec> fecs;               ///< outermost first
    std::optional<std::uint8_t> replyTos;    ///< of the IP header to reply with
    bool wantsDownstreams = false;           ///< has a downstream detailed mapping TLV
    std::vector<std::uint8_t> pads;          ///< pad TLVs to return, each whole
    std::vector<std::uint8_t> notUnderstood; ///< mandatory TLVs that are not known here, each whole
};

} // namespace OvixAgent
