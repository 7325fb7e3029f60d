#include "State/VrfRoot.h"

#include "Config/ConfigAddress.h"
#include "Lumo/VrfName.h"
#include "Ovix/rewrite/MplsRewrites.h"
#include "State/PackedLabels.h"
#include "Tessel/TypeName.h"

namespace OvixAgent {

namespace {

std::uint8_t hostLength(const IpAddress& address) noexcept {
    return address.family == IpAddress::Family::ipv4 ? 32 : 128;
}

IpPrefix hostPrefix(const IpAddress& address) noexcept {
    return {address, hostLength(address)};
}

/// The address of the subnet whose host bits are all set, where IPv4 has one to all hosts: not
/// on a point-to-point subnet (RFC 3021).
IpPrefix broadcastOf(const IpInterfaceAddress& own) {
    IpPrefix broadcast = prefixOf(own.address, own.prefixLength);
    for (unsigned bit = own.prefixLength; bit < 32; ++bit) {
        broadcast.address.bytes[bit / 8] |= static_cast<std::uint8_t>(0x80U >> bit % 8);
    }
    broadcast.length = 32;
    return broadcast;
}

void insertPort(Fib& fib, const PortConfig& port, PortIndex index) {
    for (const IpInterfaceAddress& own : port.addresses) {
        fib.insert(hostPrefix(own.address), IpRoute::local());
        if (own.address.family == IpAddress::Family::ipv4 && own.prefixLength < 31) {
            fib.insert(broadcastOf(own), IpRoute::broadcast());
        }
    }
    for (const IpInterfaceAddress& own : port.addresses) {
        IpRouteVia onLink{index, true, nullptr, {}, 1, nullptr};
        fib.insert(prefixOf(own.address, own.prefixLength), IpRoute::forward({std::move(onLink)}));
    }
}

Ptr<Ovix::RewriteImpl> pushOf(const IpRouteViaConfig& via) {
    if (via.labels.empty()) {
        return nullptr;
    }
    const std::vector<std::uint8_t> packed = packedLabels(via.labels);
    Lumo::UnboundedMplsLabelOperation operation(packed);
    operation.tc = via.tc;
    operation.ttl = via.pushTtl.value_or(Lumo::UnboundedMplsLabelOperation::defaultTtl);
    return pushRewrite(operation, static_cast<Mpls::TtlMode>(via.ttl));
}

IpRoute routeOf(const IpRouteConfig& config, const Neighbours& neighbours) {
    if (config.vias.empty()) {
        return IpRoute::drop();
    }
    std::vector<IpRouteVia> vias;
    for (const IpRouteViaConfig& via : config.vias) {
        IpRouteVia& made = vias.emplace_back();
        made.port = via.port;
        made.onLink = !via.nexthop;
        if (via.nexthop) {
            made.nexthop = toIpGenAddr(*via.nexthop);
            made.mac = neighbours.findConfigured(made.nexthop, via.port);
        }
        made.weight = via.weight;
        made.push = pushOf(via);
    }
    return IpRoute::forward(std::move(vias));
}

/// A neighbour that is on no subnet and that no route tells how to reach is a route to itself.
void insertNeighbour(Fib& fib, const NeighbourConfig& neighbour, const Neighbours& neighbours) {
    const Lumo::IpGenAddr address = toIpGenAddr(neighbour.address);
    if (fib.find(address) != nullptr) {
        return;
    }
    IpRouteVia via;
    via.port = neighbour.port;
    via.mac = neighbours.findConfigured(address, neighbour.port);
    fib.insert(hostPrefix(neighbour.address), IpRoute::forward({std::move(via)}));
}

} // namespace

Ptr<Ovix::RewriteImpl> pushRewrite(const Lumo::UnboundedMplsLabelOperation& operation,
                                   Mpls::TtlMode ttl) {
    return Ovix::MplsIpPushRewriteImpl::fromInfo(
        Tessel::make<Ovix::MplsIpPushRewriteInfo>(operation, ttl));
}

Lumo::UnboundedMplsLabelOperation pushedLabels(const Ovix::RewriteImpl& push) {
    const Ptr<const Ovix::RewriteInfo> info = push.baseInfo();
    return static_cast<const Ovix::MplsIpPushRewriteInfo&>(*info).labels.operation();
}

VrfRoot::VrfRoot(const AgentConfig& config, const Neighbours& neighbours) {
    fibIndex(L3::defaultVrf);
    for (PortIndex i = 0; i < config.ports.size(); ++i) {
        fibOfPort_.push_back(fibIndex(config.ports[i].vrf));
        insertPort(fibs_[fibOfPort_.back()], config.ports[i], i);
    }
    for (const IpRouteConfig& route : config.routes) {
        fibs_[fibIndex(route.vrf)].insert(route.prefix, routeOf(route, neighbours));
    }
    for (const NeighbourConfig& neighbour : config.neighbours) {
        insertNeighbour(fibs_[fibOfPort_[neighbour.port]], neighbour, neighbours);
    }
}

Fib& VrfRoot::fibIs(std::string_view vrf) {
    return fibs_[fibIndex(vrf.empty() ? std::string_view(L3::defaultVrf) : vrf)];
}

const Fib* VrfRoot::fib(std::string_view vrf) const noexcept {
    if (vrf.empty()) {
        return &fibs_.front();
    }
    const std::uint32_t* index = byName_.find(Tessel::hashText(vrf));
    return index != nullptr ? &fibs_[*index] : nullptr;
}

std::uint32_t VrfRoot::fibIndex(std::string_view vrf) {
    const std::uint64_t key = Tessel::hashText(vrf);
    if (const std::uint32_t* known = byName_.find(key)) {
        return *known;
    }
    const auto index = static_cast<std::uint32_t>(fibs_.size());
    byName_[key] = index;
    fibs_.emplace_back();
    return index;
}

} // namespace OvixAgent
