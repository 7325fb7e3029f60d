#include "State/PortTable.h"

#include <algorithm>

namespace OvixAgent {

namespace {

std::uint64_t vlanKey(PortIndex parent, std::uint16_t vlan, std::uint16_t innerVlan) noexcept {
    return std::uint64_t{parent} << 24U | std::uint64_t{vlan} << 12U | innerVlan;
}

/// What a sub-interface sends has to fit through its parent.
std::uint32_t mtuOf(const PortConfig& port, const std::vector<PortConfig>& all) noexcept {
    return port.isSubInterface() ? std::min(port.mtu, all[port.parent].mtu) : port.mtu;
}

} // namespace

PortTable::PortTable(const std::vector<PortConfig>& configs) : hasVlans_(configs.size()) {
    for (const PortConfig& config : configs) {
        const Lumo::IntfId intf(config.name);
        byIntf_[intf.value()] = static_cast<std::uint32_t>(ports_.size());
        ports_.push_back({config.name,
                          intf,
                          config.mac,
                          mtuOf(config, configs),
                          config.tagging,
                          config.isUp,
                          L3::VrfName(std::string_view(config.vrf)),
                          config.routesIp,
                          config.upstreamLabels,
                          config.mpls,
                          config.reversePath,
                          true,
                          nullptr,
                          {},
                          config.kind,
                          config.addresses});
        parents_.push_back(config.isSubInterface() ? config.parent
                                                   : static_cast<PortIndex>(parents_.size()));
        if (config.isSubInterface()) {
            const PortIndex index = byIntf_[intf.value()];
            byVlan_[vlanKey(config.parent, config.tagging.vlan, config.tagging.innerVlan)] = index;
            hasVlans_[config.parent] = hasVlans_[index] = true;
        }
    }
}

void PortTable::configure(const std::vector<PortConfig>& configs) {
    assert(configs.size() == ports_.size());
    for (std::size_t i = 0; i < ports_.size(); ++i) {
        ports_[i].tagging = configs[i].tagging;
        ports_[i].vrf = L3::VrfName(std::string_view(configs[i].vrf));
        ports_[i].routesIp = configs[i].routesIp;
        ports_[i].upstreamLabels = configs[i].upstreamLabels;
        ports_[i].mpls = configs[i].mpls;
        ports_[i].reversePath = configs[i].reversePath;
        ports_[i].addresses = configs[i].addresses;
    }
}

std::optional<PortTable::Taker>
PortTable::taker(PortIndex port, std::span<const std::uint16_t> vlans) const noexcept {
    assert(port < ports_.size());
    const Tagging& tagging = ports_[port].tagging;
    if (tagging.kind == Tagging::Kind::subInterface) { // the agent answers a frame of its own
        const std::size_t own = tagging.innerVlan != 0 ? 2 : 1;
        return Taker{port, vlans.size() >= own ? own : 0};
    }
    // VLAN id 0 gives a priority and no VLAN (IEEE 802.1Q).
    if (!hasVlans_[port] || vlans.empty() || vlans.front() == 0) {
        return Taker{port, 0};
    }
    if (vlans.size() > 1) {
        if (const PortIndex* both = byVlan_.find(vlanKey(port, vlans[0], vlans[1]))) {
            return Taker{*both, 2};
        }
    }
    if (const PortIndex* outer = byVlan_.find(vlanKey(port, vlans[0], 0))) {
        return Taker{*outer, 1};
    }
    return std::nullopt;
}

} // namespace OvixAgent
