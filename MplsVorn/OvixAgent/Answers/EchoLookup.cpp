#include "Answers/EchoLookup.h"

#include <algorithm>
#include <cassert>

#include "Mpls/LabelRoute.h"

namespace OvixAgent {

void EchoLookup::configure(const AgentConfig& config) {
    addresses_.clear();
    for (const PortConfig& port : config.ports) {
        std::vector<Lumo::IpGenAddr>& own = addresses_.emplace_back();
        for (const InterfaceAddress& address : port.addresses) {
            own.push_back(address.address);
        }
    }
}

bool EchoLookup::isOfPort(const Lumo::IpGenAddr& address, PortIndex port) const {
    assert(port < addresses_.size());
    const std::vector<Lumo::IpGenAddr>& own = addresses_[port];
    return std::find(own.begin(), own.end(), address) != own.end();
}

bool EchoLookup::isOwn(const Lumo::IpGenAddr& address) const {
    const IpRoute* route = forwarding_->vrfs->fib({})->find(address, address.bits());
    return route != nullptr && route->isLocal() && !route->isBroadcast();
}

EchoLabel EchoLookup::label(Lumo::MplsLabel label) const {
    const Mpls::RouteKey key = Mpls::RouteKey::fromLabel(label);
    if (tables_->lfib(Mpls::TableId::decapLfib)->route(key) != Mpls::LfibRoute()) {
        return labelOfDecap(label);
    }
    const Mpls::Hardware::Route route = tables_->hardware()->route(key);
    if (route.isEq(Mpls::Hardware::Route())) {
        return {};
    }
    EchoLabel use{EchoLabel::Use::switched};
    const auto& adjacency = tables_->hardware()->adjacency(route);
    const std::size_t vias = adjacency ? adjacency->entries(adjacency->useBackups()).size() : 0;
    for (std::uint32_t i = 0; i < vias; ++i) {
        const Ovix::OvixMplsVia& via = adjacency->via(adjacency->useBackups(), i);
        use.downstreams.push_back(
            downstream(portOf(via.intfId), via.nexthop, via.labelOperation()));
    }
    return use;
}

/// That table has labels that end here, and may have others, too.
EchoLabel EchoLookup::labelOfDecap(Lumo::MplsLabel label) const {
    constexpr auto table = Mpls::TableId::decapLfib;
    const auto route = Mpls::readLabelRoute(*tables_->lfib(table), table, label);
    if (route && route.value().isLookUp()) {
        return {EchoLabel::Use::popped, {}, route.value().vias.front().via.record().vrfName};
    }
    if (!route || route.value().tail) {
        return {EchoLabel::Use::popped};
    }
    EchoLabel use{EchoLabel::Use::switched};
    for (const Mpls::WeightedVia& via : route.value().vias) {
        const Ovix::OvixMplsVia& record = via.via.record();
        use.downstreams.push_back(
            downstream(portOf(record.intfId), record.nexthop, record.labelOperation()));
    }
    return use;
}

std::optional<PortIndex> EchoLookup::portOf(Lumo::IntfId intf) const {
    const Port* const port = forwarding_->ports.byIntfId(intf);
    return port != nullptr ? std::optional(forwarding_->ports.indexOf(*port)) : std::nullopt;
}

bool EchoLookup::isOfTree(Lumo::MplsLabel label) const {
    const Mpls::RouteKey key = Mpls::RouteKey::fromLabel(label);
    const Mpls::LfibStatus& decap = *tables_->lfib(Mpls::TableId::decapLfib);
    if (const Mpls::LfibRoute route = decap.route(key); route != Mpls::LfibRoute()) {
        return decap.viaSet(route.viaSetKey).type == Mpls::LfibViaSetType::multicast;
    }
    const Mpls::Hardware::Route route = tables_->hardware()->route(key);
    if (route.isEq(Mpls::Hardware::Route())) {
        return false;
    }
    const auto& adjacency = tables_->hardware()->adjacency(route);
    return adjacency && adjacency->setType() == Mpls::LfibViaSetType::multicast;
}

std::optional<Lumo::MplsLabel> EchoLookup::egressLabel(const Lumo::IpGenAddr& prefix,
                                                       std::uint8_t length) const {
    const IpRoute* route = forwarding_->vrfs->fib({})->find(prefix, length);
    const bool ends = route != nullptr && !route->isBroadcast() &&
                      (route->isLocal() || (!route->vias().empty() && route->vias()[0].onLink));
    return ends ? std::optional(Lumo::implicitNull) : std::nullopt;
}

std::optional<std::vector<EchoDownstream>> EchoLookup::nexthops(const Lumo::IpGenAddr& prefix,
                                                                std::uint8_t length) const {
    const IpRoute* route = forwarding_->vrfs->fib({})->find(prefix, length);
    if (route == nullptr) {
        return std::nullopt;
    }
    std::vector<EchoDownstream> nexthops;
    for (const IpRouteVia& via : route->vias()) {
        nexthops.push_back(
            downstream(via.port, via.nexthop,
                       via.push ? pushedLabels(*via.push) : Lumo::UnboundedMplsLabelOperation()));
    }
    return nexthops;
}

EchoDownstream EchoLookup::downstream(std::optional<PortIndex> port, const Lumo::IpGenAddr& nexthop,
                                      const Lumo::UnboundedMplsLabelOperation& labels) const {
    EchoDownstream downstream;
    downstream.nexthop = nexthop;
    downstream.mtu = static_cast<std::uint16_t>(port ? forwarding_->ports.ports()[*port].mtu : 0);
    downstream.port = port;
    downstream.isMpls = !port || forwarding_->ports.ports()[*port].mpls;
    for (std::size_t at = 0; at < labels.depth(); ++at) {
        downstream.labels.push_back(labels.label(at));
    }
    if (downstream.labels.empty()) {
        downstream.labels.push_back(Lumo::implicitNull);
    }
    return downstream;
}

} // namespace OvixAgent
