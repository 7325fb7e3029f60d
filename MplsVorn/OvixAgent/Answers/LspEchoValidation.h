#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "Answers/LspEchoRequest.h"
#include "Config/ConfigTypes.h"
#include "Lumo/MplsLabel.h"

namespace OvixAgent {

/// Where a label that is switched leads to.
struct EchoDownstream {
    Lumo::IpGenAddr nexthop;             ///< of IPv4 or IPv6
    std::uint16_t mtu = 0;               ///< of the egress, less the labels
    std::vector<Lumo::MplsLabel> labels; ///< that it leaves with, outermost first; implicit null
                                         ///< for one that is popped
    std::optional<PortIndex> port{};     ///< the egress, where it is one of the agent's
};

/// What this router does with a label that comes in.
struct EchoLabel {
    enum class Use : std::uint8_t {
        unknown,  ///< there is no entry for it
        popped,   ///< and what is beneath is looked at here
        switched, ///< to another router
    };
    Use use = Use::unknown;
    std::vector<EchoDownstream> downstreams; ///< of a label that is switched, as far as known
};

/// What echo requests are checked against.
struct EchoTables {
    /// Not asked of explicit null and router alert, which are popped everywhere.
    std::function<EchoLabel(Lumo::MplsLabel label)> label;
    /// The label that this router wants a prefix to be sent to it with, where it is the egress:
    /// implicit null when the router before pops. Empty when it has no mapping for the prefix.
    std::function<std::optional<Lumo::MplsLabel>(const Lumo::IpGenAddr& prefix,
                                                 std::uint8_t length)>
        egressLabel;
    /// The ways that this router has to a prefix, empty where it is the device's own; nothing when
    /// it has no route for the very prefix.
    std::function<std::optional<std::vector<EchoDownstream>>(const Lumo::IpGenAddr& prefix,
                                                             std::uint8_t length)>
        ways;
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

struct EchoVerdict {
    EchoReturnCode code = EchoReturnCode::malformed;
    std::uint8_t depth = 0; ///< in the label stack or the FEC stack; the bottom is 1
    std::vector<EchoDownstream> downstreams{};
};

/// Checks a request that came in with a label stack, the outermost label first (RFC 8029
/// section 4.4), in transit its FEC only where it asks for that. Downstream mappings in the request
/// are not compared with how it came in.
EchoVerdict validateEcho(const LspEchoRequest& request,
                         std::span<const Lumo::MplsLabelEntry> labels, const EchoTables& tables);

} // namespace OvixAgent
