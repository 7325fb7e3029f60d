#pragma once

#include "Answers/LspEchoValidation.h"
#include "Published/PublishedTables.h"
#include "State/ForwardingTables.h"

namespace OvixAgent {

/// What the tables that frames are forwarded by say to an MPLS echo request: the labels, and the IP
/// routes of the default VRF.
class EchoLookup {
  public:
    /// All must outlive it.
    EchoLookup(const ForwardingTables& forwarding, const Mpls::PublishedTables& tables)
        : forwarding_(&forwarding), tables_(&tables) {}

    EchoLabel label(Lumo::MplsLabel label) const;
    std::optional<Lumo::MplsLabel> egressLabel(const Lumo::IpGenAddr& prefix) const;
    std::optional<std::vector<EchoDownstream>> ways(const Lumo::IpGenAddr& prefix,
                                                    std::uint8_t length) const;

    /// As functions; it must outlive them, where it stands.
    EchoTables tables() const;

  private:
    EchoDownstream downstream(std::optional<PortIndex> port, const Lumo::IpGenAddr& nexthop,
                              const Lumo::UnboundedMplsLabelOperation& labels) const;

    const ForwardingTables* forwarding_;
    const Mpls::PublishedTables* tables_;
};

} // namespace OvixAgent
