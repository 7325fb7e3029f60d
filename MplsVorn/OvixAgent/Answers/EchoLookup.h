#pragma once

#include "Answers/LspEchoValidation.h"
#include "Published/PublishedTables.h"
#include "State/ForwardingTables.h"

namespace OvixAgent {

/// The tables that frames are forwarded by, for MPLS echo requests: the label tables, and the IP
/// routes of the default VRF.
class EchoLookup final : public EchoTables {
  public:
    /// Both must outlive it.
    EchoLookup(const ForwardingTables& forwarding, const Mpls::PublishedTables& tables)
        : forwarding_(&forwarding), tables_(&tables) {}

    EchoLabel label(Lumo::MplsLabel label) const override;
    std::optional<Lumo::MplsLabel> egressLabel(const Lumo::IpGenAddr& prefix,
                                               std::uint8_t length) const override;
    std::optional<std::vector<EchoDownstream>> nexthops(const Lumo::IpGenAddr& prefix,
                                                        std::uint8_t length) const override;

  private:
    EchoDownstream downstream(std::optional<PortIndex> port, const Lumo::IpGenAddr& nexthop,
                              const Lumo::UnboundedMplsLabelOperation& labels) const;

    const ForwardingTables* forwarding_;
    const Mpls::PublishedTables* tables_;
};

} // namespace OvixAgent
