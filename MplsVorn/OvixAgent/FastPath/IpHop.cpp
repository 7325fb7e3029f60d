#include "FastPath/IpHop.h"

#include <algorithm>

#include "Ip/IpPacket.h"
#include "Ovix/packet/FlowHash.h"
#include "Ovix/packet/TtlBytes.h"
#include "Ovix/rewrite/MplsRewrites.h"
#include "State/LinkHeader.h"

namespace OvixAgent {

namespace {

IpPacket packetOf(const PacketWork& work) noexcept {
    return {work.type, work.bytes()};
}

/// Whether nothing about the packet itself keeps a router from forwarding it.
bool isForwardable(const IpPacket& packet) noexcept {
    return packet.fault(0).empty() && packet.ttl() > 1 &&
           ipScope(packet.destination()) == IpScope::global &&
           ipScope(packet.source()) == IpScope::global;
}

struct Push {
    const Ovix::MplsIpPushRewriteInfo* info = nullptr;
    std::uint32_t bytes = 0;
};

/// The labels of a via, which pushRewrite() has made.
Push pushOf(const IpRouteVia& via) {
    if (!via.push) {
        return {};
    }
    const auto& push = static_cast<const Ovix::MplsIpPushRewriteImpl&>(*via.push);
    const Ovix::MplsIpPushRewriteInfo& info = push.pushed();
    return {&info, static_cast<std::uint32_t>(info.labels.entries() * Lumo::MplsLabelEntry::size)};
}

void pushLabels(const Push& push, PacketWork& work) {
    const Ovix::MplsIpPushRewriteInfo& info = *push.info;
    const Lumo::UnboundedMplsLabelOperation operation = info.labels.operation();
    const std::uint8_t tc = operation.tc.value_or(Ovix::trafficClassOf(work.type, work.bytes()));
    const std::uint8_t ttl = info.ttlMode == Mpls::TtlMode::uniform
                                 ? Ovix::TtlBytes::ttl(work.type, work.bytes())
                                 : operation.ttl;
    const std::uint32_t hash =
        info.labels.namesFlow() ? Ovix::flowHash(work.type, work.bytes()) : 0;
    work.packet -= push.bytes;
    work.length += push.bytes;
    info.labels.write({work.packet, push.bytes}, tc, ttl, hash, false);
    work.type = Ovix::PktHdrType::mpls;
}

} // namespace

const IpRouteVia* IpHop::viaFor(const Fib& fib, const PacketWork& work) const {
    const IpRoute* const route = fib.find(packetOf(work).destination());
    if (route == nullptr || route->isLocal() || route->drops()) {
        return nullptr;
    }
    return route->vias().size() == 1 ? &route->vias().front()
                                     : &route->choose(Ovix::flowHash(work.type, work.bytes()));
}

const Lumo::EthAddr* IpHop::macFor(const IpRouteVia& via, const PacketWork& work) const {
    if (via.mac != nullptr) {
        return via.mac;
    }
    const Lumo::IpGenAddr neighbour = via.onLink ? packetOf(work).destination() : via.nexthop;
    const Lumo::EthAddr* const mac = tables_->neighbours.find(neighbour, via.port);
    return mac == nullptr && via.onLink && via.push ? tables_->neighbours.only(via.port) : mac;
}

bool IpHop::route(const Fib& fib, PacketWork& work, EgressLine& line) const {
    if (!isForwardable(packetOf(work))) {
        return false;
    }
    // Padding of the link is not forwarded.
    work.length =
        static_cast<std::uint32_t>(std::min<std::size_t>(packetOf(work).length(), work.length));
    const IpRouteVia* const via = viaFor(fib, work);
    if (via == nullptr || tables_->pseudowires.isCircuit(via->port)) {
        return false;
    }
    Port& out = tables_->ports.ports()[via->port];
    const Lumo::EthAddr* const mac = macFor(*via, work);
    const Push push = pushOf(*via);
    line.port = &out;
    line.neighbourIs(mac);
    if (!line.takes(work.length + push.bytes) || !work.hasRoom(push.bytes)) {
        return false;
    }
    line.tagsAre(tagsToSend({}, out.tagging, 0));
    Ovix::TtlBytes::ttlIs(work.type, work.bytes(),
                          static_cast<std::uint8_t>(packetOf(work).ttl() - 1));
    if (push.info != nullptr) {
        pushLabels(push, work);
    }
    return true;
}

} // namespace OvixAgent
