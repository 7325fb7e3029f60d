#include "FastPath/IpHop.h"

#include <algorithm>
#include <optional>

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
    std::uint8_t ttl = 0;
    Lumo::IpGenAddr source;
    Lumo::IpGenAddr destination;
};

/// Of an IPv4 packet without options.
std::optional<Forwardable> plainIpv4(const std::uint8_t* packet, std::uint32_t length) noexcept {
    using Wire::Ipv4;
    const std::uint32_t total = Lumo::NetU16::load(packet + Ipv4::totalLengthAt).value();
    const std::uint8_t ttl = packet[Ipv4::ttlAt];
    if (total < Ipv4::size || total > length || ttl <= 1 || !Wire::isIntactIpv4(packet) ||
        !isGlobalIpv4(Lumo::NetU32::load(packet + Ipv4::sourceAt).value()) ||
        !isGlobalIpv4(Lumo::NetU32::load(packet + Ipv4::destinationAt).value())) {
        return std::nullopt;
    }
    return Forwardable{total, ttl, Lumo::IpGenAddr::ipv4(packet + Ipv4::sourceAt),
                       Lumo::IpGenAddr::ipv4(packet + Ipv4::destinationAt)};
}

std::optional<Forwardable> forwardable(const PacketWork& work) noexcept {
    constexpr std::uint8_t withoutOptions = 0x45;
    if (work.type == Ovix::PktHdrType::ipv4 && work.length >= Wire::Ipv4::size &&
        work.packet[0] == withoutOptions) [[likely]] {
        return plainIpv4(work.packet, work.length);
    }
    const IpPacket packet = packetOf(work);
    const bool isPlain = packet.fault(0).empty() && packet.ttl() > 1 &&
                         ipScope(packet.destination()) == IpScope::global &&
                         ipScope(packet.source()) == IpScope::global;
    if (!isPlain) {
        return std::nullopt;
    }
    const auto length =
        static_cast<std::uint32_t>(std::min<std::size_t>(packet.length(), work.length));
    return Forwardable{length, packet.ttl(), packet.source(), packet.destination()};
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

} // namespace

const IpRouteVia* IpHop::viaFor(const Fib& fib, const Lumo::IpGenAddr& destination,
                                const PacketWork& work) const {
    const IpRoute* const route = fib.find(destination);
    if (route == nullptr || route->isLocal() || route->drops()) {
        return nullptr;
    }
    return route->vias().size() == 1 ? &route->vias().front()
                                     : &route->choose(Ovix::flowHash(work.type, work.bytes()));
}

const Lumo::EthAddr* IpHop::macFor(const IpRouteVia& via,
                                   const Lumo::IpGenAddr& destination) const {
    if (via.mac != nullptr) {
        return via.mac;
    }
    const Lumo::IpGenAddr& neighbour = via.onLink ? destination : via.nexthop;
    const Lumo::EthAddr* const mac = tables_->neighbours.find(neighbour, via.port);
    return mac == nullptr && via.onLink && via.push ? tables_->neighbours.only(via.port) : mac;
}

bool IpHop::route(const Fib& fib, ReversePath asked, PacketWork& work, EgressLine& line) const {
    const auto packet = forwardable(work);
    if (!packet || !sourceFault(fib, packet->source, asked, work.port).empty()) {
        return false;
    }
    work.length = packet->length; // padding of the link is not forwarded
    const IpRouteVia* const via = viaFor(fib, packet->destination, work);
    if (via == nullptr || tables_->pseudowires.isCircuit(via->port)) {
        return false;
    }
    line.port = &tables_->ports.ports()[via->port];
    line.neighbourIs(macFor(*via, packet->destination));
    if (line.port->tagging.kind > Tagging::Kind::none) {
        line.tagsAre(tagsToSend({}, line.port->tagging, 0));
    }
    const Push push = pushOf(*via);
    if (!line.takes(work.length + push.bytes) || !work.hasRoom(push.bytes)) {
        return false;
    }
    decrementTtl(work, packet->ttl);
    if (push.info != nullptr) {
        pushLabels(push, work);
    }
    return true;
}

} // namespace OvixAgent
