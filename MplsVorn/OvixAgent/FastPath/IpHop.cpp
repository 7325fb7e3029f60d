#include "FastPath/IpHop.h"

#include <algorithm>
#include <utility>

#include "Ip/IpPacket.h"
#include "Ip/SourceCheck.h"
#include "Ovix/packet/FlowHash.h"
#include "Ovix/packet/TtlBytes.h"
#include "Ovix/rewrite/MplsRewrites.h"
#include "State/LinkHeader.h"
#include "Wire/Ip.h"

namespace OvixAgent {

namespace {

IpPacket packetOf(const PacketWork& work) noexcept {
    return {work.type, work.bytes()};
}

/// What forwarding needs of a packet that nothing about itself keeps from being forwarded.
struct Forwardable {
    std::uint32_t length = 0; ///< without padding
    std::uint32_t route = noPrefix;
    std::uint8_t ttl = 0;
};

/// Its route is unset when it is none of these packets, or has no route.
Forwardable forwardable(const Fib& fib, ReversePath asked, const PacketWork& work) noexcept {
    const IpPacket packet = packetOf(work);
    const bool isPlain = packet.fault(0).empty() && packet.ttl() > 1 &&
                         ipScope(packet.destination()) == IpScope::global &&
                         ipScope(packet.source()) == IpScope::global &&
                         sourceFault(fib, packet.source(), asked, work.port).empty();
    if (!isPlain) {
        return {};
    }
    const auto length =
        static_cast<std::uint32_t>(std::min<std::size_t>(packet.length(), work.length));
    return {length, fib.numberOf(packet.destination()), packet.ttl()};
}

void decrementTtl(const PacketWork& work, std::uint8_t ttl) noexcept {
    const auto less = static_cast<std::uint8_t>(ttl - 1);
    if (work.type == Ovix::PktHdrType::ipv4) {
        Wire::Ipv4Writer(work.bytes()).ttlWithChecksumIs(less);
    } else {
        Wire::Ipv6Writer(work.bytes()).hopLimitIs(less);
    }
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

void pushLabels(const RouteHop& hop, PacketWork& work) noexcept {
    const std::uint32_t rest = hop.withTcAndTtl(Ovix::trafficClassOf(work.type, work.bytes()),
                                                Ovix::TtlBytes::ttl(work.type, work.bytes()));
    work.packet -= hop.grows();
    work.length += hop.grows();
    hop.write(work.packet, rest);
    work.type = Ovix::PktHdrType::mpls;
}

} // namespace

const Lumo::EthAddr* IpHop::macFor(const IpRouteVia& via,
                                   const Lumo::IpGenAddr& destination) const {
    if (via.mac != nullptr) {
        return via.mac;
    }
    const Lumo::IpGenAddr& neighbour = via.onLink ? destination : via.nexthop;
    const Lumo::EthAddr* const mac = tables_->neighbours.find(neighbour, via.port);
    return mac == nullptr && via.onLink && via.push ? tables_->neighbours.only(via.port) : mac;
}

const EgressLine* IpHop::routeByVia(const IpRoute& route, std::uint8_t ttl, PacketWork& work) {
    const std::size_t chosen =
        route.vias().size() == 1
            ? 0
            : route.choose(Ovix::flowHash(work.type, work.bytes()), tables_->ports.ports());
    const IpRouteVia& via = route.vias()[chosen];
    Port& port = tables_->ports.ports()[via.port];
    own_ = {port, macFor(via, packetOf(work).destination()), 0, tagsToSend({}, port.tagging, 0)};
    const Push push = pushOf(via);
    if (!own_.takes(work.length + push.bytes) || !work.hasRoom(push.bytes)) {
        return nullptr;
    }
    decrementTtl(work, ttl);
    if (push.info != nullptr) {
        pushLabels(push, work);
    }
    return &own_;
}

const EgressLine* IpHop::route(std::uint32_t fib, ReversePath asked, PacketWork& work) {
    const Fib& routes = hops_->fib(fib);
    const Forwardable packet = forwardable(routes, asked, work);
    if (packet.route == noPrefix) {
        return nullptr;
    }
    work.length = packet.length; // padding of the link is not forwarded
    const RouteHop& hop = hopOfFlow(fib, packet.route, work.type, work.bytes());
    if (hop.kind != RouteHop::Kind::line) {
        return hop.kind == RouteHop::Kind::via
                   ? routeByVia(routes.route(packet.route), packet.ttl, work)
                   : nullptr;
    }
    const EgressLine& line = (*lines_)[hop.egress];
    if (!line.takes(work.length + hop.grows()) || !work.hasRoom(hop.grows())) {
        return nullptr;
    }
    decrementTtl(work, packet.ttl);
    if (hop.labels > 0) {
        pushLabels(hop, work);
    }
    return &line;
}

} // namespace OvixAgent
