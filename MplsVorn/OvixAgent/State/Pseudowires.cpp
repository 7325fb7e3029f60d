#include "State/Pseudowires.h"

#include <algorithm>

#include "Ovix/rewrite/MplsPushRewriteImpl.h"
#include "State/Fate.h"

namespace OvixAgent {

namespace {

using State = L2::Pseudowire::State;

/// The pseudowire label is the bottom of the stack, below the tunnel's (RFC 4447 section 3); the
/// control word goes behind the stack once that is there.
Ptr<Ovix::RoutingNexthop> remoteOf(const PseudowireConfig& config,
                                   const std::vector<PortConfig>& ports) {
    std::vector<Lumo::MplsLabel> labels = config.tunnelLabels;
    labels.push_back(config.label);
    Mpls::ViaOptions options;
    options.intf = Lumo::IntfId(ports[config.egress].name);
    const Mpls::Via via = Mpls::Via::push(labels, options).value();

    auto remote = Tessel::make<Ovix::RoutingNexthop>(options.intf);
    remote->addressIs(config.nexthop);
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

/// The tunnel's labels are those of the route to the other end, pushed later. Whatever address the
/// other end has: it is looked up for each frame.
Ptr<Ovix::RoutingNexthop> remoteOf(const L2::Pseudowire& signalled) {
    const std::vector<Lumo::MplsLabel> labels{Lumo::MplsLabel(signalled.remoteLabel)};
    Mpls::ViaOptions options;
    options.intf = Lumo::IntfId("tunnel"); // of which nothing but the labels is used
    const Mpls::Via via = Mpls::Via::push(labels, options).value();
    auto remote = Tessel::make<Ovix::RoutingNexthop>(Lumo::IntfId());
    remote->addressIs(signalled.neighbour);
    Ovix::RewriteInfos& rewrites = remote->rewriteInfos();
    rewrites.rewriteInfoEnq(
        Tessel::make<Ovix::EthOverMplsRewriteInfo>(via.record().labelOperation()));
    if (signalled.controlWord) {
        rewrites.rewriteInfoEnq(Tessel::make<Ovix::ControlWordPushRewriteInfo>());
    }
    return remote;
}

std::string_view dropReasonOf(State state) noexcept {
    switch (state) {
    case State::up:
        return {};
    case State::noLocalLabel:
    case State::noRemoteLabel:
        return Reason::pseudowireNoLabel;
    case State::invalidLabel:
        return Reason::pseudowireInvalidLabel;
    case State::mtuMismatch:
        return Reason::pseudowireMtus;
    case State::otherType:
    case State::noCircuit:
    case State::notPointToPoint:
        return Reason::pseudowireUnsupported;
    case State::noDaemon:
        return Reason::pseudowireNoDaemon;
    case State::down:
        break;
    }
    return Reason::pseudowireDown;
}

/// The records of shared memory may say anything.
bool isUsable(const L2::Pseudowire& signalled) noexcept {
    return signalled.remoteLabel >= L2::Pseudowire::minLabel &&
           signalled.remoteLabel <= Lumo::MplsLabel::max &&
           signalled.neighbour.family() != Lumo::IpFamily::none;
}

} // namespace

bool isTunnel(const L2::Pseudowire& signalled, const IpRouteVia& via) noexcept {
    const auto& adjacent = signalled.adjacent;
    return via.push || via.onLink || via.nexthop == signalled.neighbour ||
           std::find(adjacent.begin(), adjacent.end(), via.nexthop) != adjacent.end();
}

Pseudowires::Pseudowires(const AgentConfig& config)
    : byPort_(config.ports.size(), none), mplsRouting_(config.mplsRouting) {
    for (const auto& [pseudowire, line] : config.pseudowires) {
        byPort_[pseudowire.port] = pseudowires_.size();
        Pseudowire& added = pseudowires_.emplace_back();
        added.name = pseudowire.name;
        added.circuit = pseudowire.port;
        added.remote = remoteOf(pseudowire, config.ports);
        added.controlWord = pseudowire.controlWord;
        added.flowLabel = pseudowire.flowLabel;
    }
    configured_ = pseudowires_.size();
}

void Pseudowires::signalledAre(std::vector<L2::Pseudowire> all, const PortTable& ports) {
    signalled_ = std::move(all);
    const std::vector<Pseudowire> before = pseudowires_;
    pseudowires_.resize(configured_);
    for (std::size_t& index : byPort_) {
        index = index < configured_ ? index : none;
    }
    for (const L2::Pseudowire& signalled : signalled_) {
        const Port* const port = ports.byIntfId(Lumo::IntfId(signalled.circuit));
        if (port != nullptr && !isCircuit(ports.indexOf(*port))) {
            add(signalled, ports.indexOf(*port), before);
        }
    }
}

void Pseudowires::add(const L2::Pseudowire& signalled, PortIndex circuit,
                      const std::vector<Pseudowire>& before) {
    byPort_[circuit] = pseudowires_.size();
    Pseudowire& added = pseudowires_.emplace_back();
    added.name = signalled.name;
    added.circuit = circuit;
    added.controlWord = signalled.controlWord;
    added.signalled = signalled;
    added.dropReason = dropReasonOf(signalled.state);
    if (signalled.isUp() && isUsable(signalled)) {
        added.remote = remoteOf(signalled);
    } else if (signalled.isUp()) {
        added.dropReason = Reason::pseudowireInvalidLabel;
    }
    const auto same = std::find_if(before.begin(), before.end(), [&](const Pseudowire& other) {
        return other.name == added.name && other.circuit == circuit;
    });
    if (same != before.end()) {
        added.sent = same->sent;
        added.delivered = same->delivered;
    }
}

} // namespace OvixAgent
