#include "State/Pseudowires.h"

#include "Ovix/rewrite/MplsPushRewriteImpl.h"
#include "State/Neighbours.h"
#include "State/PackedLabels.h"

namespace OvixAgent {

namespace {

/// The pseudowire label is the bottom of the stack, the tunnel's stand above (RFC 4448 section 3);
/// the control word goes behind the stack once that is there.
Ptr<Ovix::RoutingNexthop> wayToRemote(const PseudowireConfig& config,
                                      const std::vector<PortConfig>& ports) {
    auto remote = Tessel::make<Ovix::RoutingNexthop>(Lumo::IntfId(ports[config.egress].name));
    remote->addressIs(toIpGenAddr(config.nexthop));
    std::vector<std::uint32_t> labels = config.tunnelLabels;
    labels.push_back(config.label);
    const std::vector<std::uint8_t> packed = packedLabels(labels);
    Ovix::RewriteInfos& rewrites = remote->rewriteInfos();
    rewrites.rewriteInfoEnq(
        Tessel::make<Ovix::EthOverMplsRewriteInfo>(Lumo::UnboundedMplsLabelOperation(packed)));
    if (config.controlWord) {
        rewrites.rewriteInfoEnq(Tessel::make<Ovix::ControlWordPushRewriteInfo>());
    }
    return remote;
}

} // namespace

Pseudowires::Pseudowires(const AgentConfig& config)
    : byPort_(config.ports.size(), none), mplsRouting_(config.mplsRouting) {
    for (const PseudowireConfig& pseudowire : config.pseudowires) {
        byPort_[pseudowire.port] = pseudowires_.size();
        pseudowires_.push_back({pseudowire.name,
                                wayToRemote(pseudowire, config.ports),
                                pseudowire.controlWord,
                                {},
                                {}});
    }
}

} // namespace OvixAgent
