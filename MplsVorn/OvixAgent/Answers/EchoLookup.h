#pragma once

#include "Answers/LspEchoValidation.h"
#include "Published/PublishedTables.h"
#include "State/ForwardingTables.h"

namespace OvixAgent {

/// The tables that frames are forwarded by, for MPLS echo requests: the label tables, the IP routes
/// of the default VRF, and the addresses of the ports.
class EchoLookup final : public EchoTables {
  public:
    /// Both tables must outlive it.
    EchoLookup(const AgentConfig& config, const ForwardingTables& forwarding,
               const Mpls::PublishedTables& tables)
        : forwarding_(&forwarding), tables_(&tables) {
        configure(config);
    }

    /// Sets the addresses of the ports; the ports themselves must be the same.
    void configure(const AgentConfig& config);

    EchoLabel label(Lumo::MplsLabel label) const override;
    std::optional<Lumo::MplsLabel> egressLabel(const Lumo::IpGenAddr& prefix,
                                               std::uint8_t length) const override;
    std::optional<std::vector<EchoDownstream>> nexthops(const Lumo::IpGenAddr& prefix,
                                                        std::uint8_t length) const override;
    bool isOfTree(Lumo::MplsLabel label) const override;
    bool isOfPort(const Lumo::IpGenAddr& address, PortIndex port) const override;
    bool isOwn(const Lumo::IpGenAddr& address) const override;

  private:
    EchoLabel labelOfDecap(Lumo::MplsLabel label) const;
    std::optional<PortIndex> portOf(Lumo::IntfId intf) const;
    EchoDownstream downstream(std::optional<PortIndex> port, const Lumo::IpGenAddr& nexthop,
                              const Lumo::UnboundedMplsLabelOperation& labels) const;

    const ForwardingTables* forwarding_;
    const Mpls::PublishedTables* tables_;
    std::vector<std::vector<Lumo::IpGenAddr>> addresses_; ///< by port
};

} // namespace OvixAgent
