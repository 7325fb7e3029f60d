#include "FastPath/CircuitTunnels.h"

#include "Wire/ControlWord.h"

namespace OvixAgent {

CircuitTunnels::CircuitTunnels(const Ptr<Ovix::PluginManager>& manager, ForwardingTables& tables,
                               EgressLines& lines)
    : rewriteMap_(Ovix::RewriteInfoImplMapSharedObject::getMap(manager->sharedObjects())),
      tables_(&tables), lines_(&lines) {}

void CircuitTunnels::restart() {
    tunnels_.clear();
    for (PortIndex i = 0; i < tables_->ports.ports().size(); ++i) {
        tunnels_.push_back(tunnelOf(i));
    }
}

/// One without a pseudowire when the port is no circuit, or has one that is not plain.
CircuitTunnel CircuitTunnels::tunnelOf(PortIndex circuit) {
    Pseudowire* const pseudowire = tables_->pseudowires.ofPort(circuit);
    if (pseudowire == nullptr || !pseudowire->remote || !tables_->pseudowires.mplsRouting()) {
        return {};
    }
    const Ovix::RoutingNexthop& remote = *pseudowire->remote;
    const Port* const port = tables_->ports.byIntfId(remote.intfId());
    CircuitTunnel tunnel;
    if (port == nullptr || port->out == nullptr || remote.address().empty() ||
        tables_->pseudowires.isCircuit(tables_->ports.indexOf(*port)) ||
        !readRewrites(remote.rewriteInfos(), tunnel)) {
        return {};
    }
    tunnel.pseudowire = pseudowire;
    tunnel.egress = lines_->numberOf(
        {tables_->ports.indexOf(*port), remote.mtu(), remote.vlanId(), false, remote.address()});
    return tunnel;
}

bool CircuitTunnels::readRewrites(const Ovix::RewriteInfos& rewrites, CircuitTunnel& tunnel) const {
    if (!rewrites.finalCounterActions().empty()) {
        return false;
    }
    for (const Ptr<Ovix::RewriteInfo>& info : rewrites.rewrites()) {
        const auto fromInfo = rewriteMap_->rewriteFn(info->typeName());
        if (fromInfo == nullptr || !fromInfo(info)->doesAsRecorded()) {
            return false;
        }
        if (!tunnel.imposed && info->typeName() == Ovix::EthOverMplsRewriteInfo::infoTypeName) {
            tunnel.imposed = Ptr<const Ovix::EthOverMplsRewriteInfo>(
                static_cast<const Ovix::EthOverMplsRewriteInfo*>(info.get()));
        } else if (tunnel.imposed && tunnel.controlWordBytes == 0 &&
                   info->typeName() == Ovix::ControlWordPushRewriteInfo::infoTypeName) {
            tunnel.controlWordBytes = Wire::ControlWord::size;
        } else {
            return false;
        }
    }
    if (!tunnel.imposed || tunnel.imposed->labels.operation().depth() == 0) {
        return false;
    }
    tunnel.labelBytes =
        static_cast<std::uint32_t>(tunnel.imposed->labels.entries() * Lumo::MplsLabelEntry::size);
    return true;
}

} // namespace OvixAgent
