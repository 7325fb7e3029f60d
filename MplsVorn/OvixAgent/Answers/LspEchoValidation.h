#pragma once

#include <optional>
#include <span>
#include <vector>

#include "Answers/LspEchoMessage.h"

namespace OvixAgent {

/// What this router does with an incoming label.
struct EchoLabel {
    enum class Use : std::uint8_t {
        unknown,  ///< no entry
        popped,   ///< and this router processes what is beneath
        switched, ///< to another router
    };
    Use use = Use::unknown;
    std::vector<EchoDownstream> downstreams{}; ///< of a switched label, as far as known
};

/// The tables that echo requests are validated against.
class EchoTables {
  public:
    EchoTables() = default;
    EchoTables(const EchoTables&) = delete;
    EchoTables& operator=(const EchoTables&) = delete;
    virtual ~EchoTables() = default;

    /// Not called for explicit null and router alert, which are popped by every router.
    virtual EchoLabel label(Lumo::MplsLabel label) const = 0;
    /// The label that this router advertises for a prefix of which it is the egress: implicit null
    /// for penultimate hop popping. Empty when it has no mapping for the prefix.
    virtual std::optional<Lumo::MplsLabel> egressLabel(const Lumo::IpGenAddr& prefix,
                                                       std::uint8_t length) const = 0;
    /// The next hops of this router's route for exactly this prefix, none for its own addresses.
    /// Empty when there is no such route.
    virtual std::optional<std::vector<EchoDownstream>> nexthops(const Lumo::IpGenAddr& prefix,
                                                                std::uint8_t length) const = 0;
};

/// Validates a request that was received with a label stack, outermost label first (RFC 8029
/// section 4.4). In transit the FEC is validated only if the request asks for it. Downstream
/// mappings in the request are not compared with the interface and labels it was received with.
EchoVerdict validateEcho(const LspEchoRequest& request,
                         std::span<const Lumo::MplsLabelEntry> labels, const EchoTables& tables);

} // namespace OvixAgent
