#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "Lumo/IpGenAddr.h"
#include "Lumo/MplsLabel.h"

namespace OvixAgent {

/// One element of a target FEC stack: a prefix, that LDP or segment routing binds a label to; an
/// IGP adjacency of segment routing (RFC 8287 section 5); or the Nil FEC of a label that belongs to
/// none.
struct EchoFec {
    enum class Kind : std::uint8_t { prefix, adjacency, nil };

    Kind kind = Kind::nil;
    Lumo::IpGenAddr prefix{};
    std::uint8_t length = 0;
    /// The ends of the adjacency's link; of no family when it is unnumbered or one of several.
    Lumo::IpGenAddr local{};
    Lumo::IpGenAddr remote{};
    Lumo::IpGenAddr receiver{}; ///< the router id of the adjacency's far end; of no family in IS-IS
    bool namesNoRouter = false; ///< of no protocol, so that the identifiers are zero
};

/// The downstream detailed mapping of a request (RFC 8029 section 3.4), or the mapping that it has
/// replaced: what the router before has reported of this one.
struct EchoMapping {
    bool isDeprecated = false;   ///< is answered by the same
    bool wantsInterface = false; ///< the I flag
    Lumo::IpGenAddr address{};
    Lumo::IpGenAddr interface {}; ///< of no family when the interface is unnumbered
    /// Outermost first, with implicit nulls; unset when left out.
    std::optional<std::vector<Lumo::MplsLabel>> labels{};

    /// The router before does not know this one's address.
    bool isOfUnknownAddress() const noexcept;
    /// Sent to whichever routers are downstream, without anything to compare.
    bool isToAllRouters() const noexcept;
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
    std::optional<EchoMapping> mapping;      ///< asks for downstream mappings in the reply
    std::vector<std::uint8_t> pads;          ///< whole pad TLVs to return
    std::vector<std::uint8_t> notUnderstood; ///< whole mandatory TLVs of unknown type
};

} // namespace OvixAgent
