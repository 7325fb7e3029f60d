#include "State/PortTable.h"

namespace OvixAgent {

PortTable::PortTable(const std::vector<PortConfig>& configs) {
    for (const PortConfig& config : configs) {
        const Lumo::IntfId intf(config.name);
        byIntf_[intf.value()] = static_cast<std::uint32_t>(ports_.size());
        ports_.push_back({config.name,
                          intf,
                          config.mac,
                          config.mtu,
                          config.tagging,
                          config.isUp,
                          L3::VrfName(std::string_view(config.vrf)),
                          config.routesIp,
                          config.upstreamLabels,
                          nullptr,
                          {}});
    }
}

void PortTable::configure(const std::vector<PortConfig>& configs) {
    for (std::size_t i = 0; i < ports_.size(); ++i) {
        ports_[i].tagging = configs[i].tagging;
        ports_[i].vrf = L3::VrfName(std::string_view(configs[i].vrf));
        ports_[i].routesIp = configs[i].routesIp;
        ports_[i].upstreamLabels = configs[i].upstreamLabels;
    }
}

} // namespace OvixAgent
