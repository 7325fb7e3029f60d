#pragma once

#include <optional>
#include <span>
#include <vector>

#include "Answers/LspEchoReply.h"

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
    /// Of a popped label that names one: where what is beneath is routed.
    std::optional<L3::VrfName> vrf{};
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
    /// Whether the label is that of a multicast tree.
    virtual bool isOfTree(Lumo::MplsLabel label) const = 0;
    virtual bool isOfPort(const Lumo::IpGenAddr& address, PortIndex port) const = 0;
    /// Whether it is an address of this router.
    virtual bool isOwn(const Lumo::IpGenAddr& address) const = 0;
};

/// Validates a request that was received at a port with a label stack, outermost label first (RFC
/// 8029 section 4.4, RFC 8287 section 7.4), and its downstream mapping. In transit the FEC is
/// validated only if the request asks for it.
///
/// What segments an IGP has advertised is not known here: a prefix segment ends where its prefix is
/// an own one, and of an adjacency segment the interface is verified.
EchoVerdict validateEcho(const LspEchoRequest& request, PortIndex port,
                         std::span<const Lumo::MplsLabelEntry> labels, const EchoTables& tables);

} // namespace OvixAgent
