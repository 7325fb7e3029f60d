#include "Network.h"

#include <fmt/format.h>

namespace Differential {

namespace {

constexpr std::size_t labelCount = 40;

const char* yesNo(bool value) {
    return value ? "true" : "false";
}

std::string vrf(Random& random) {
    return random.pick({"default", "default", "red", "blue"});
}

std::string portLine(Random& random, const Network& network, std::size_t index) {
    const PortPlan& plan = network.ports[index];
    std::string line = fmt::format("  - {{name: {}", plan.name);
    if (plan.parent != OvixAgent::noPort) {
        line +=
            plan.innerVlan == 0
                ? fmt::format(", parent: {}, vlan: {}", network.ports[plan.parent].name, plan.vlan)
                : fmt::format(", parent: {}, vlan: [{}, {}]", network.ports[plan.parent].name,
                              plan.vlan, plan.innerVlan);
    } else {
        line += fmt::format(", mac: \"02:00:00:00:00:{:02x}\", mtu: {}, tagging: {}", index + 1,
                            plan.mtu, random.pick({"keep", "keep", "none", "20"}));
    }
    if (!plan.isCircuit) {
        line += fmt::format(", addresses: [{}/24, \"{}/64\"], vrf: {}, mpls: {}",
                            network.address(index, Lumo::IpFamily::ipv4, 1),
                            network.address(index, Lumo::IpFamily::ipv6, 1), vrf(random),
                            yesNo(!random.chance(4)));
        line += fmt::format(", upstream-labels: {}, reverse-path: {}", yesNo(random.chance(30)),
                            random.pick({"off", "off", "off", "off", "loose", "strict"}));
    }
    return line + fmt::format(", status: {}}}\n", random.chance(5) ? "down" : "up");
}

std::string neighbourLines(Random& random, const Network& network) {
    std::string lines;
    for (std::size_t port = 0; port < network.ports.size(); ++port) {
        for (const std::uint32_t host : {2U, 3U, 4U}) {
            for (const auto family : {Lumo::IpFamily::ipv4, Lumo::IpFamily::ipv6}) {
                if (!network.ports[port].isCircuit && random.chance(85)) {
                    lines += fmt::format(
                        "  - {{address: \"{}\", port: {}, mac: \"02:00:00:00:{:02x}:{:02x}\"}}\n",
                        network.address(port, family, host), network.ports[port].name, port + 1,
                        host);
                }
            }
        }
    }
    return lines.empty() ? "" : "neighbours:\n" + lines;
}

std::string nextHop(Random& random, const Network& network, bool alwaysIpv4 = false) {
    const OvixAgent::PortIndex port = network.anyEgress(random);
    const auto family =
        alwaysIpv4 || random.chance(80) ? Lumo::IpFamily::ipv4 : Lumo::IpFamily::ipv6;
    return fmt::format("interface: {}, nexthop: \"{}\"", network.ports[port].name,
                       network.address(port, family, 2 + random.below(3)));
}

std::string fecLines(Random& random, const Network& network) {
    std::string lines = "fecs:\n";
    for (std::size_t id = 1; id <= 4; ++id) {
        lines += fmt::format("  - {{id: {}, vias: [", id);
        const std::uint32_t vias = 1 + random.below(4);
        for (std::uint32_t i = 0; i < vias; ++i) {
            lines += fmt::format("{}{{{}, weight: {}}}", i > 0 ? ", " : "",
                                 nextHop(random, network), 1 + random.below(4));
        }
        lines += "]}\n";
    }
    return lines;
}

std::string routeLines(Random& random, const Network& network) {
    return fmt::format("routes:\n"
                       "  - {{prefix: 10.72.0.0/16, via: {{{}}}}}\n"
                       "  - {{prefix: 10.100.0.0/16, via: {{{}}}}}\n"
                       "  - {{vrf: red, prefix: 10.72.0.0/16, via: {{{}, labels: [{}]}}}}\n"
                       "  - {{vrf: blue, prefix: 10.73.0.0/16, drop: {}}}\n",
                       nextHop(random, network, true), nextHop(random, network, true),
                       nextHop(random, network, true), 1000 + random.below(100),
                       random.pick({"true", "unreachable", "prohibit"}));
}

std::string pseudowireLines(Random& random, const Network& network) {
    std::string lines;
    for (const PortPlan& port : network.ports) {
        if (port.isCircuit && !random.chance(10)) {
            const bool hasTunnel = random.chance(70);
            lines += fmt::format("pseudowires:\n  - {{name: pw, port: {}, label: 500, {}, "
                                 "control-word: {}, flow-label: {}, labels: [{}], entropy: {}}}\n",
                                 port.name, nextHop(random, network), yesNo(random.chance(60)),
                                 yesNo(random.chance(30)), hasTunnel ? "600" : "",
                                 yesNo(hasTunnel && random.chance(30)));
        }
    }
    return lines;
}

} // namespace

Network::Network(Random& random) : plainPorts(3 + random.below(3)) {
    for (std::size_t i = 0; i < plainPorts; ++i) {
        ports.push_back({fmt::format("p{}", i),
                         random.chance(70)
                             ? 1500
                             : random.pick<std::uint32_t>({68, 100, 128, 576, 1600, 9000})});
    }
    if (random.chance(50)) {
        ports.push_back({"p1.7", 1500, 1, 7});
        ports.push_back(
            {"p1.8", 1500, 1, 8, static_cast<std::uint16_t>(random.chance(50) ? 9 : 0)});
    }
    ports.push_back({"ce", 1500});
    ports.back().isCircuit = true;
    for (std::size_t i = 0; i < ports.size(); ++i) {
        ports[i].mac = {2, 0, 0, 0, 0, static_cast<std::uint8_t>(i + 1)};
    }
    for (std::size_t i = 0; i < labelCount; ++i) {
        labels.push_back(16 + (random.chance(80) ? random.below(200) : random.below(1048560)));
    }
    prefixes.push_back(Lumo::IpGenPrefix::of(Lumo::IpGenAddr::fromText("10.72.0.0"), 16));
    prefixes.push_back(Lumo::IpGenPrefix::of(Lumo::IpGenAddr::fromText("10.73.0.0"), 16));
}

Traffic Network::trafficOf(std::uint32_t label) const {
    const auto found = held.find(label);
    if (found != held.end()) {
        for (const auto& inTable : found->second) {
            if (inTable) {
                return *inTable;
            }
        }
    }
    return Traffic::unknown;
}

std::string Network::address(std::size_t port, Lumo::IpFamily family, std::uint32_t host) const {
    return family == Lumo::IpFamily::ipv4 ? fmt::format("10.0.{}.{}", port, host)
                                          : fmt::format("2001:db8:{:x}::{:x}", port, host);
}

Lumo::IpGenAddr Network::neighbour(Random& random, std::size_t port) const {
    const auto family = random.chance(75) ? Lumo::IpFamily::ipv4 : Lumo::IpFamily::ipv6;
    return Lumo::IpGenAddr::fromText(
        address(port, family, 2 + random.below(random.chance(90) ? 3 : 4)));
}

OvixAgent::PortIndex Network::anyEgress(Random& random) const {
    return random.below(ports.size() - 1);
}

std::string makeConfig(Random& random, const Network& network) {
    std::string text = "ports:\n";
    for (std::size_t i = 0; i < network.ports.size(); ++i) {
        text += portLine(random, network, i);
    }
    text += neighbourLines(random, network);
    text += fecLines(random, network) + routeLines(random, network);
    text += pseudowireLines(random, network);
    text += "mvpn:\n  - {vrf-id: 7, vlan: 100}\n  - {vrf-id: 8, interface: p2}\n";
    return text + fmt::format("mpls-routing: {}\n", yesNo(!random.chance(1)));
}

} // namespace Differential
