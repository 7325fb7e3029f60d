#include "State/Pseudowires.h"

#include "Ovix/rewrite/MplsPushRewriteImpl.h"

namespace OvixAgent {

namespace {

/// The pseudowire label is the bottom of the stack, below the tunnel's (RFC 4448 section 3); the
/// control word goes behind the stack once that is there.
Ptr<Ovix::RoutingNexthop> remoteOf(const PseudowireConfig& config,
                                   const std::vector<PortConfig>& ports) {
    std::vector<Lumo::MplsLabel> labels = config.tunnelLabels;
    labels.push_back(config.label);
    Mpls::ViaOptions options;
    options.intf = Lumo::IntfId(ports[config.egress].name);
    options.nexthop = config.nexthop;
    const Mpls::Via via = Mpls::Via::push(labels, options).value();

    auto remote = Tessel::make<Ovix::RoutingNexthop>(options.intf);
    remote->addressIs(options.nexthop);
    Ovix::RewriteInfos& rewrites = remote->rewriteInfos();
    Lumo::UnboundedMplsLabelOperation imposed = via.record().labelOperation();
    imposed.entropyBeneath =
        config.entropy ? static_cast<std::uint8_t>(config.tunnelLabels.size()) : 0;
    imposed.flowLabel = config.flowLabel;
    rewrites.rewriteInfoEnq(Tessel::make<Ovix::EthOverMplsRewriteInfo>(imposed));
    if (config.controlWord) {
        rewrites.rewriteInfoEnq(Tessel::make<Ovix::ControlWordPushRewriteInfo>());
    }
    return remote;
}

} // namespace

Pseudowires::Pseudowires(const AgentConfig& config)
    : byPort_(config.ports.size(), none), mplsRouting_(config.mplsRouting) {
    for (const auto& [pseudowire, line] : config.pseudowires) {
        byPort_[pseudowire.port] = pseudowires_.size();
        Pseudowire& added = pseudowires_.emplace_back();
        added.name = pseudowire.name;
        added.remote = remoteOf(pseudowire, config.ports);
        added.controlWord = pseudowire.controlWord;
        added.flowLabel = pseudowire.flowLabel;
    }
}

} // namespace OvixAgent
