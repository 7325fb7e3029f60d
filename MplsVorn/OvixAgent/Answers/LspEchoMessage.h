#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "Config/ConfigTypes.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/MplsLabel.h"

namespace OvixAgent {

/// One element of a target FEC stack: a prefix that LDP binds a label to, or the Nil FEC, whose
/// address has no family: the FEC of a label that belongs to none.
struct EchoFec {
    Lumo::IpGenAddr prefix;
    std::uint8_t length = 0;

    bool isNil() const noexcept { return prefix.family() == Lumo::IpFamily::none; }
};

/// An MPLS echo request (RFC 8029 section 3); Wire/LspEcho.h has the drawing.
struct LspEchoRequest {
    /// Why a request cannot be validated.
    enum class Fault : std::uint8_t { none, malformed, notUnderstood };

    /// From the payload of a UDP datagram. Empty when it is shorter than the header or another kind
    /// of message.
    static std::optional<LspEchoRequest> read(std::span<const std::uint8_t> payload);

    // Set whatever the fault.
    std::uint8_t replyMode = 0;
    bool validatesFecs = false;             ///< also in transit: the V flag
    bool onlyIfTtlExpired = false;          ///< the T flag (RFC 6425 section 3.4)
    std::span<const std::uint8_t> returned; ///< handle, sequence number and time sent
    Fault fault = Fault::none;

    // From the TLVs before the first malformed one.
    std::vector<EchoFec> fecs;               ///< outermost first
    std::optional<std::uint8_t> replyTos;    ///< for the IP header of the reply
    bool wantsDownstreams = false;           ///< has a downstream detailed mapping TLV
    std::vector<std::uint8_t> pads;          ///< whole pad TLVs to return
    std::vector<std::uint8_t> notUnderstood; ///< whole mandatory TLVs of unknown type
};

/// A next hop of a switched label.
struct EchoDownstream {
    Lumo::IpGenAddr nexthop;             ///< of IPv4 or IPv6
    std::uint16_t mtu = 0;               ///< of the egress, less the labels
    std::vector<Lumo::MplsLabel> labels; ///< sent, outermost first; implicit null for a pop
    std::optional<PortIndex> port{};     ///< the egress, if it is a port of the agent
};

/// Return codes of an MPLS echo reply (RFC 8029 section 3.1).
enum class EchoReturnCode : std::uint8_t {
    malformed = 1,
    tlvNotUnderstood = 2,
    egress = 3,
    noMapping = 4,
    switched = 8,
    mappingDiffers = 10,
    noLabelEntry = 11,
    inDownstreamMapping = 14,
};

/// The result of a request's validation.
struct EchoVerdict {
    EchoReturnCode code = EchoReturnCode::malformed;
    std::uint8_t depth = 0; ///< in the label stack or the FEC stack; the bottom is 1
    std::vector<EchoDownstream> downstreams{};
};

/// An MPLS echo reply, the payload of a UDP datagram. It returns the request's handle, sequence
/// number, time stamp and pad TLVs, TLVs that were not understood in an errored TLVs TLV (RFC 8029
/// section 3.8), and on request the downstreams (section 3.4). `received` is the request's time by
/// ntpTime().
std::vector<std::uint8_t> echoReplyBytes(const LspEchoRequest& request, const EchoVerdict& verdict,
                                         std::uint64_t received);

} // namespace OvixAgent
