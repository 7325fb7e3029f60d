#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Answers/LspEchoRequest.h"
#include "Config/Config.h"
#include "Tessel/Words.h"

namespace OvixAgent {

/// A next hop of a switched label.
struct EchoDownstream {
    Lumo::IpGenAddr nexthop;             ///< of no family when it is not known
    std::uint16_t mtu = 0;               ///< of the egress, for the packet with its labels
    std::vector<Lumo::MplsLabel> labels; ///< sent, outermost first; implicit null for a pop
    std::optional<PortIndex> port{};     ///< the egress, if it is a port of the agent
    bool isMpls = true;                  ///< the egress has labelled frames
};

/// Return codes of an MPLS echo reply (RFC 8029 section 3.1, RFC 8287 section 9.5).
enum class EchoReturnCode : std::uint8_t {
    malformed = 1,
    tlvNotUnderstood = 2,
    egress = 3,
    noMapping = 4,
    downstreamMismatch = 5,
    unknownUpstream = 6,
    switched = 8,
    noMplsForwarding = 9,
    mappingDiffers = 10,
    noLabelEntry = 11,
    inDownstreamMapping = 14,
    notOfInterface = 35,
};

/// The result of a request's validation.
struct EchoVerdict {
    EchoReturnCode code = EchoReturnCode::malformed;
    std::uint8_t depth = 0; ///< in the label stack or the FEC stack; the bottom is 1
    std::vector<EchoDownstream> downstreams{};
    std::size_t endedFecs = 0; ///< of the request's, outermost first, that no downstream gets
};

/// Where a request came in, for the interface and label stack TLV (RFC 8029 section 3.7).
struct EchoArrival {
    Lumo::IpGenAddr interface;            ///< an address of the port
    std::span<const std::uint8_t> labels; ///< whole entries, as received
};

/// An MPLS echo reply, the payload of a UDP datagram. It returns the request's handle, sequence
/// number, time stamp and pad TLVs, TLVs that were not understood in an errored TLVs TLV (RFC 8029
/// section 3.8), and on request the downstreams (section 3.4) and the arrival, which it also
/// reports when the downstream mapping of the request does not agree.
struct EchoReply {
    std::vector<std::uint8_t> bytes;
    std::size_t leftOut = 0; ///< TLVs for which there was no room
};
/// Of at most `room` bytes, but always with its fixed header. `received` is the request's time by
/// ntpTime().
EchoReply echoReply(const LspEchoRequest& request, const EchoVerdict& verdict,
                    const EchoArrival& arrival, std::uint64_t received, std::size_t room);

/// Whether the reply reports downstreams.
bool reportsDownstreams(const LspEchoRequest& request, const EchoVerdict& verdict) noexcept;

} // namespace OvixAgent

template <>
inline constexpr auto Tessel::words<OvixAgent::EchoReturnCode> =
    std::to_array<Tessel::Word<OvixAgent::EchoReturnCode>>({
        {"malformed request", OvixAgent::EchoReturnCode::malformed},
        {"TLV not understood", OvixAgent::EchoReturnCode::tlvNotUnderstood},
        {"egress for the FEC", OvixAgent::EchoReturnCode::egress},
        {"no mapping for the FEC", OvixAgent::EchoReturnCode::noMapping},
        {"downstream mapping mismatch", OvixAgent::EchoReturnCode::downstreamMismatch},
        {"upstream interface index unknown", OvixAgent::EchoReturnCode::unknownUpstream},
        {"label switched", OvixAgent::EchoReturnCode::switched},
        {"label switched but no MPLS forwarding", OvixAgent::EchoReturnCode::noMplsForwarding},
        {"mapping for the FEC is not the given label", OvixAgent::EchoReturnCode::mappingDiffers},
        {"no label entry", OvixAgent::EchoReturnCode::noLabelEntry},
        {"see the downstream detailed mapping", OvixAgent::EchoReturnCode::inDownstreamMapping},
        {"mapping for the FEC is not associated with the incoming interface",
         OvixAgent::EchoReturnCode::notOfInterface},
    });
