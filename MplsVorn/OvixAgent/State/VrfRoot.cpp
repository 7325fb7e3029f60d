#include "State/VrfRoot.h"

#include "Lumo/IntfId.h"
#include "Tessel/Changes.h"
#include "Tessel/TypeName.h"

namespace OvixAgent {

namespace {

/// A port's addresses, and its subnets with their broadcast addresses: IPv4 has one to all hosts,
/// but not on a point-to-point subnet (RFC 3021).
void insertPort(Fib& fib, const PortConfig& port, PortIndex index) {
    for (const InterfaceAddress& own : port.addresses) {
        fib.insert(Lumo::IpGenPrefix::ofHost(own.address), IpRoute::local());
        fib.ownHostIs(own.address);
        if (own.address.family() == Lumo::IpFamily::ipv4 && own.prefixLength < 31) {
            const Lumo::IpGenAddr broadcast = own.address.filled(own.prefixLength);
            fib.insert(Lumo::IpGenPrefix::ofHost(broadcast), IpRoute::broadcast());
            fib.ownHostIs(broadcast);
        }
    }
    for (const InterfaceAddress& own : port.addresses) {
        IpRouteVia onLink{index, true, nullptr, {}, 1, nullptr};
        fib.insert(own.subnet(), IpRoute::forward({std::move(onLink)}));
    }
}

/// A neighbour that is on no subnet, and that no route leads to, is a route to itself.
void insertNeighbour(Fib& fib, const NeighbourConfig& neighbour, const Neighbours& neighbours) {
    if (fib.find(neighbour.address) != nullptr) {
        return;
    }
    IpRouteVia via;
    via.port = neighbour.port;
    via.mac = neighbours.findConfigured(neighbour.address, neighbour.port);
    fib.insert(Lumo::IpGenPrefix::ofHost(neighbour.address), IpRoute::forward({std::move(via)}));
}

} // namespace

VrfRoot::VrfRoot(const AgentConfig& config, const PortTable& ports, const Neighbours& neighbours) {
    fibIndex(L3::defaultVrf);
    for (PortIndex i = 0; i < config.ports.size(); ++i) {
        fibOfPort_.push_back(fibIndex(config.ports[i].vrf));
        insertPort(fibs_[fibOfPort_.back()], config.ports[i], i);
    }
    for (const auto& [route, line] : config.routes) {
        fibIs(route.vrf).insert(route.key.range(), resolve(route, ports, &neighbours));
    }
    for (const NeighbourConfig& neighbour : config.neighbours) {
        insertNeighbour(fibs_[fibOfPort_[neighbour.port]], neighbour, neighbours);
    }
}

Fib& VrfRoot::fibIs(std::string_view vrf) {
    return fibs_[fibIndex(vrf.empty() ? std::string_view(L3::defaultVrf) : vrf)];
}

const Fib* VrfRoot::fib(std::string_view vrf) const noexcept {
    const auto known = number(vrf);
    return known ? &fibs_[*known] : nullptr;
}

std::optional<std::uint32_t> VrfRoot::number(std::string_view vrf) const noexcept {
    if (vrf.empty()) {
        return 0;
    }
    const std::uint32_t* index = byName_.find(Tessel::hashText(vrf));
    return index != nullptr ? std::optional(*index) : std::nullopt;
}

std::uint32_t VrfRoot::fibIndex(std::string_view vrf) {
    const std::uint64_t key = Tessel::hashText(vrf);
    if (const std::uint32_t* known = byName_.find(key)) {
        return *known;
    }
    const auto index = static_cast<std::uint32_t>(fibs_.size());
    byName_[key] = index;
    fibs_.emplace_back();
    names_.emplace_back(vrf);
    Tessel::Changes::notice();
    return index;
}

} // namespace OvixAgent
