#include "EdgeScenarios.h"

#include <functional>
#include <map>
#include <random>

#include "Config/Config.h"
#include "IpBytes.h"

namespace Bench {

namespace {

using OvixAgent::AgentConfig;

constexpr std::uint32_t firstLabel = 16;
constexpr std::uint32_t customerNet = 0x64000000; ///< 100.0.0.0, a /24 per route

constexpr const char* network = R"(
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24], vrf: red, mpls: true}
  - {name: east, mac: "02:00:00:00:00:02", addresses: [10.0.2.1/24, "2001:db8:2::1/64"], vrf: red}
  - {name: customer, mac: "02:00:00:00:00:03"}
neighbours:
  - {address: 10.0.2.2, port: east, mac: "02:00:00:00:02:02"}
  - {address: "2001:db8:2::2", port: east, mac: "02:00:00:00:02:02"}
routes:
  - {vrf: red, prefix: 100.0.0.0/8, vias: [{interface: east, nexthop: 10.0.2.2}]}
  - {vrf: red, prefix: "2001:db8:100::/40", vias: [{interface: east, nexthop: "2001:db8:2::2"}]}
fecs:
  - {id: 42, vias: [{interface: east, nexthop: 10.0.2.2}]}
pseudowires:
  - {name: pw, port: customer, label: 500, interface: east, nexthop: 10.0.2.2, labels: [600]}
)";

Bytes ethernet(std::uint32_t etherType) {
    Bytes frame{2, 0, 0, 0, 0, 1, 2, 0, 0, 0, 1, 2};
    put16(frame, etherType);
    return frame;
}

Bytes labelled(std::uint32_t label) {
    Bytes frame = ethernet(0x8847);
    put32(frame, (label << 12U) | 0x100U | 64U);
    return frame;
}

Mpls::Via swapVia(const Mpls::ViaOptions& options) {
    return Mpls::Via::swap(std::array{Lumo::MplsLabel(300)}, options).value();
}

/// Each label has a route with the via.
void labelRoutes(AgentConfig& config, std::uint32_t routes, Mpls::LfibViaType type,
                 const Mpls::Via& via) {
    Mpls::LabelRoute route;
    route.table = Mpls::TableId::decapLfib;
    route.viaType = type;
    route.vias = {{via, 1}};
    for (std::uint32_t i = 0; i < routes; ++i) {
        route.label = Lumo::MplsLabel(firstLabel + i);
        config.labelRoutes.push_back({route, 0});
    }
}

/// Each prefix of the customer has a route of that via.
void prefixRoutes(AgentConfig& config, std::uint32_t routes, const Mpls::Via& via) {
    L3::Route route = config.routes.front().value;
    route.vias[0].via = via;
    for (std::uint32_t i = 0; i < routes; ++i) {
        const std::uint32_t prefix = customerNet + (i << 8U);
        const std::array bytes{static_cast<std::uint8_t>(prefix >> 24U),
                               static_cast<std::uint8_t>(prefix >> 16U),
                               static_cast<std::uint8_t>(prefix >> 8U), std::uint8_t{0}};
        route.key = {L3::RouteKey::mainTable, Lumo::IpGenAddr::ipv4(bytes.data()), 24};
        config.routes.push_back({route, 0});
    }
}

/// The way that the VRF's prefixes lead.
Mpls::ViaOptions prefixOptions(const AgentConfig& config) {
    return config.routes.front().value.vias[0].via.options();
}

void pushingRoutes(AgentConfig& config, std::uint32_t routes) {
    const std::array labels{Lumo::MplsLabel(300)};
    prefixRoutes(config, routes, Mpls::Via::push(labels, prefixOptions(config)).value());
}

/// So many labels lead to the lookup of all prefixes.
constexpr std::uint32_t lookupLabels = 1000;

void lookedUpRoutes(AgentConfig& config, std::uint32_t routes) {
    labelRoutes(config, lookupLabels, Mpls::LfibViaType::ipLookup,
                Mpls::Via::popAndLookUp("red", Mpls::PayloadType::ipv4).value());
    prefixRoutes(config, routes, Mpls::Via::forward(prefixOptions(config)).value());
}

struct Edge {
    std::function<void(AgentConfig&, std::uint32_t routes)> addRoutes;
    /// `route` is the number of the route that the frame meets.
    std::function<Bytes(std::uint32_t route, std::uint32_t flow)> frame;
    std::uint32_t port = 0;
};

Bytes popIpv4Frame(std::uint32_t route, std::uint32_t flow) {
    Bytes frame = labelled(firstLabel + route);
    putIpv4(frame, flow, customerNet + flow);
    return frame;
}
Bytes lookedUpFrame(std::uint32_t route, std::uint32_t flow) {
    Bytes frame = labelled(firstLabel + flow % lookupLabels);
    putIpv4(frame, flow, customerNet + (route << 8U) + 1);
    return frame;
}
Bytes popIpv6Frame(std::uint32_t route, std::uint32_t flow) {
    Bytes frame = labelled(firstLabel + route);
    putIpv6(frame, flow);
    return frame;
}
/// As big as the ports' MTU without its label.
Bytes tooBigFrame(std::uint32_t route, std::uint32_t flow) {
    Bytes frame = labelled(firstLabel + route);
    putIpv4(frame, flow, customerNet + flow, 1500);
    return frame;
}
Bytes ipFrame(std::uint32_t route, std::uint32_t flow) {
    Bytes frame = ethernet(0x0800);
    putIpv4(frame, flow, customerNet + (route << 8U) + 1);
    return frame;
}
Bytes customerFrame(std::uint32_t, std::uint32_t flow) {
    return ipFrame(0, flow);
}

const std::map<std::string, Edge>& edges() {
    using Mpls::LfibViaType;
    using Mpls::PayloadType;
    const auto lookup = [](PayloadType payload) {
        return [payload](AgentConfig& config, std::uint32_t routes) {
            labelRoutes(config, routes, LfibViaType::ipLookup,
                        Mpls::Via::popAndLookUp("red", payload).value());
        };
    };
    const auto toFec = [](AgentConfig& config, std::uint32_t routes) {
        const auto via = Mpls::Via::towardFec(42, Lumo::MplsLabelAction::swap,
                                              std::array{Lumo::MplsLabel(300)}, {});
        labelRoutes(config, routes, LfibViaType::externalFec, via.value());
    };
    const auto toEast = [](AgentConfig& config, std::uint32_t routes) {
        Mpls::ViaOptions options;
        options.intf = Lumo::IntfId("east");
        options.nexthop = Lumo::IpGenAddr::fromText("10.0.2.2");
        labelRoutes(config, routes, LfibViaType::ip, swapVia(options));
    };
    static const std::map<std::string, Edge> all{
        {"pop_ipv4", {lookup(PayloadType::ipv4), popIpv4Frame}},
        {"pop_ipv6", {lookup(PayloadType::ipv6), popIpv6Frame}},
        {"pop_route", {lookedUpRoutes, lookedUpFrame}},
        {"ip_push", {pushingRoutes, ipFrame}},
        {"external_fec", {toFec, popIpv4Frame}},
        {"pseudowire_cw", {[](AgentConfig&, std::uint32_t) {}, customerFrame, 2}},
        {"mtu_exception", {toEast, tooBigFrame}},
    };
    return all;
}

} // namespace

std::vector<std::string> edgeScenarioNames() {
    return {"pop_ipv4", "pop_ipv6", "ip_push", "external_fec", "pseudowire_cw", "mtu_exception"};
}

Scenario makeEdgeScenario(const std::string& name, std::uint32_t routes, std::size_t frames) {
    const Edge& edge = edges().at(name);
    Scenario scenario;
    scenario.name = name;
    scenario.config = OvixAgent::parseConfig(network, "bench").value();
    scenario.port = edge.port;
    edge.addRoutes(scenario.config, routes);
    std::mt19937 random(1);
    std::uniform_int_distribution<std::uint32_t> route(0, routes - 1);
    std::uniform_int_distribution<std::uint32_t> flow(0, 0xffff);
    for (std::size_t i = 0; i < frames; ++i) {
        const std::uint32_t one = flow(random);
        scenario.frames.push_back(edge.frame(route(random), one));
    }
    return scenario;
}

} // namespace Bench
