#include "FastPath/CircuitForwarding.h"

#include "Ovix/packet/FlowHash.h"
#include "Wire/ControlWord.h"

namespace OvixAgent {

CircuitForwarding::CircuitForwarding(const Ptr<Ovix::PluginManager>& manager,
                                     ForwardingTables& tables, EgressLines& lines,
                                     Departures& departures)
    : rewriteMap_(Ovix::RewriteInfoImplMapSharedObject::getMap(manager->sharedObjects())),
      tables_(&tables), lines_(&lines), departures_(&departures) {}

void CircuitForwarding::restart() {
    tunnels_.clear();
    for (PortIndex i = 0; i < tables_->ports.ports().size(); ++i) {
        tunnels_.push_back(tunnelOf(i));
    }
}

/// One without a pseudowire when the port is no circuit, or has one that is not plain.
CircuitForwarding::Tunnel CircuitForwarding::tunnelOf(PortIndex circuit) {
    Pseudowire* const pseudowire = tables_->pseudowires.ofPort(circuit);
    if (pseudowire == nullptr || !pseudowire->remote || !tables_->pseudowires.mplsRouting()) {
        return {};
    }
    const Ovix::RoutingNexthop& remote = *pseudowire->remote;
    const Port* const port = tables_->ports.byIntfId(remote.intfId());
    Tunnel tunnel;
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

bool CircuitForwarding::readRewrites(const Ovix::RewriteInfos& rewrites, Tunnel& tunnel) const {
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

// The class of the frame goes into the labels, whose TTL is 255 (RFC 4448).
bool CircuitForwarding::forward(PacketWork work) {
    const Tunnel& tunnel = tunnels_[work.port];
    if (tunnel.pseudowire == nullptr) {
        return false;
    }
    const EgressLine& line = (*lines_)[tunnel.egress];
    const std::uint32_t added = tunnel.labelBytes + tunnel.controlWordBytes;
    if (!line.takes(work.length + added) || !work.hasRoom(added)) {
        return false;
    }
    const Ovix::ImposedLabels& labels = tunnel.imposed->labels;
    const std::uint8_t tc = Ovix::classOf(Ovix::PktHdrType::eth, work.bytes());
    const std::uint32_t hash =
        labels.namesFlow() ? Ovix::flowHash(Ovix::PktHdrType::eth, work.bytes()) : 0;
    const std::uint32_t received = work.length;
    work.packet -= added;
    work.length += added;
    work.type = Ovix::PktHdrType::mpls;
    constexpr std::uint8_t ttl = 255;
    labels.write(work.bytes().first(tunnel.labelBytes), tc, ttl, hash, false);
    if (tunnel.controlWordBytes > 0) {
        Wire::ControlWordWriter(work.bytes().subspan(tunnel.labelBytes)).clear();
    }
    tunnel.pseudowire->sent.add(received);
    departures_->send(work, line, Wire::EtherType::mpls);
    return true;
}

} // namespace OvixAgent
