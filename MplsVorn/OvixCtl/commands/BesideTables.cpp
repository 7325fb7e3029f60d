#include "commands/BesideTables.h"

#include "commands/AgentSituation.h"

namespace OvixCtl {

namespace {

/// The packets of a port's subnets leave by the port.
void takeSubnets(const OvixAgent::PortConfig& port, std::vector<L3::Route>& routes) {
    Mpls::ViaOptions options;
    options.intf = Lumo::IntfId(port.name);
    const auto via = Mpls::Via::forward(options);
    for (const OvixAgent::InterfaceAddress& own : port.addresses) {
        if (via) {
            const Lumo::IpGenPrefix subnet = own.subnet();
            const bool isDefault = port.vrf == L3::defaultVrf;
            routes.push_back({{L3::RouteKey::mainTable, subnet.address(), subnet.length()},
                              L3::Route::Kind::forward,
                              {{via.value(), 1}},
                              isDefault ? L3::VrfName() : L3::VrfName(port.vrf)});
        }
    }
}

std::vector<Wires::Configured> configuredWires(const OvixAgent::AgentConfig& config) {
    std::vector<Wires::Configured> all;
    for (const auto& placed : config.pseudowires) {
        const OvixAgent::PseudowireConfig& wire = placed.value;
        Mpls::ViaOptions options;
        options.intf = Lumo::IntfId(config.ports[wire.egress].name);
        options.nexthop = wire.nexthop;
        std::vector<Lumo::MplsLabel> labels = wire.tunnelLabels;
        labels.push_back(wire.label);
        L3::Route tunnel;
        tunnel.kind = L3::Route::Kind::forward;
        tunnel.vias = {{Mpls::Via::push(labels, options).value(), 1}};
        all.push_back({wire.name, Lumo::IntfId(config.ports[wire.port].name), std::move(tunnel)});
    }
    return all;
}

} // namespace

BesideTables BesideTables::of(const Request& request, Assumptions& assumed) {
    const auto situation = configurationOf(request);
    if (!situation) {
        return {{}, {}, {}, situation.refused().what};
    }
    const OvixAgent::AgentConfig& config = situation.value().config;
    BesideTables beside;
    for (const OvixAgent::PortConfig& port : config.ports) {
        beside.ports.push_back(port.name);
        takeSubnets(port, beside.routes);
        if (port.isSubInterface() && assumed.isDown(Lumo::IntfId(config.ports[port.parent].name))) {
            assumed.downLinks.emplace_back(port.name);
        }
    }
    for (const auto& placed : config.routes) {
        beside.routes.push_back(placed.value);
    }
    beside.wires = configuredWires(config);
    return beside;
}

} // namespace OvixCtl
