// Neighbours and IP routes that a frame lacks.

#include <charconv>
#include <fmt/format.h>

#include "Explain/RemedyCase.h"
#include "Forwarding/WaitingPackets.h"
#include "Published/IpRoutes.h"
#include "State/RoadSteps.h"
#include "Tessel/Fib/FecId.h"

namespace OvixAgent {

namespace {

/// For documentation (RFC 7042 section 2.1.2).
constexpr Lumo::EthAddr anyDevice{0x00, 0x00, 0x5e, 0x00, 0x53, 0x02};

/// Whether somebody publishes IP routes: zebra, by the listener.
bool hasPublishedRoutes(const Situation& situation) {
    if (!situation.isLive || !situation.tables) {
        return false;
    }
    const Ptr<Tessel::TableReader> reader = situation.tables->reader();
    bool hasAny = false;
    reader->forEach(L3::Routes(reader).table(),
                    [&](std::uint32_t, Tessel::TableRef) { hasAny = true; });
    return hasAny;
}

std::string vtyshRoute(const std::string& vrf, const Lumo::IpGenAddr& address,
                       const NeighbourConfig& by, const PortConfig& port) {
    const bool isIpv4 = address.family() == Lumo::IpFamily::ipv4;
    const std::string inVrf = vrf == L3::defaultVrf ? "" : " vrf " + vrf;
    const std::string toVrf = vrf == port.vrf ? "" : " nexthop-vrf " + port.vrf;
    return "vtysh -c 'configure terminal' -c " +
           shellWord(fmt::format("{} route {} {} {}{}{}", isIpv4 ? "ip" : "ipv6",
                                 hostPrefix(address), by.address.text(), port.name, inVrf, toVrf));
}

std::string configuredRoute(const Situation& situation, const std::string& vrf,
                            const Lumo::IpGenAddr& address, const NeighbourConfig& by,
                            const PortConfig& port) {
    return configEntry(situation, "routes",
                       fmt::format("  - {{vrf: {}, prefix: \"{}\", via: {{interface: {}, "
                                   "nexthop: \"{}\"}}}}",
                                   yamlWord(vrf), hostPrefix(address), yamlWord(port.name),
                                   by.address.text()));
}

/// Routes the address in a VRF by the neighbour; unset when no route can.
std::optional<Remedy> routedBy(const RemedyCase& of, const std::string& vrf,
                               const Lumo::IpGenAddr& address, const NeighbourConfig& by) {
    const PortConfig& port = of.situation.config.ports[by.port];
    Mpls::ViaOptions options;
    options.intf = Lumo::IntfId(port.name);
    options.nexthop = by.address;
    const auto via = Mpls::Via::forward(options);
    if (!via || by.address.family() != address.family()) {
        return std::nullopt;
    }
    Remedy remedy = of.unchanged();
    L3::Route route{{L3::RouteKey::mainTable, address, address.bits()},
                    L3::Route::Kind::forward,
                    {{via.value(), 1}},
                    L3::VrfName(std::string_view(vrf))};
    remedy.situation.config.routes.push_back({std::move(route), 0});
    remedy.command = hasPublishedRoutes(of.situation)
                         ? vtyshRoute(vrf, address, by, port)
                         : configuredRoute(of.situation, vrf, address, by, port);
    remedy.note = by.mac == Lumo::EthAddr{} ? "the next hop is that of another route of the VRF"
                                            : "the next hop is a neighbour that is known";
    if (port.vrf != vrf) {
        remedy.note +=
            fmt::format(", but in VRF {}: packets of VRF {} would leak into it", port.vrf, vrf);
    }
    return remedy;
}

/// Whether the port, of the VRF, is the one that the via leaves by.
bool isEgress(const PortConfig& port, const std::string& vrf, const Mpls::Via& via) {
    if (port.vrf != vrf || !via.intf().empty()) {
        return port.vrf == vrf && Lumo::IntfId(port.name) == via.intf();
    }
    return std::any_of(port.addresses.begin(), port.addresses.end(),
                       [&](const auto& own) { return own.subnet().contains(via.nexthop()); });
}

/// The next hops in the VRF of its configured routes, whether or not their MAC addresses are known.
std::vector<NeighbourConfig> nexthopsIn(const Situation& situation, const std::string& vrf) {
    const std::vector<PortConfig>& ports = situation.config.ports;
    std::vector<NeighbourConfig> all;
    for (const auto& placed : situation.config.routes) {
        const std::string_view name = placed.value.vrf.view();
        for (const Mpls::WeightedVia& each : placed.value.vias) {
            const auto port = std::find_if(ports.begin(), ports.end(), [&](const PortConfig& one) {
                return isEgress(one, vrf, each.via);
            });
            if ((name.empty() ? L3::defaultVrf : name) == vrf && port != ports.end() &&
                each.via.nexthop().family() != Lumo::IpFamily::none) {
                const auto index = static_cast<PortIndex>(port - ports.begin());
                all.push_back({each.via.nexthop(), index, {}});
            }
        }
    }
    return all;
}

/// A route to just that address in a VRF, by each of the likely neighbours: those of other VRFs
/// only where the VRF has none.
Remedies routed(const RemedyCase& of, const std::string& vrf, const Lumo::IpGenAddr& address) {
    std::vector<NeighbourConfig> likely = likelyNeighbours(of.situation, of.frame.port);
    const auto others =
        std::stable_partition(likely.begin(), likely.end(), [&](const NeighbourConfig& neighbour) {
            return of.situation.config.ports[neighbour.port].vrf == vrf;
        });
    const std::vector<NeighbourConfig> ofRoutes = nexthopsIn(of.situation, vrf);
    if (others != likely.begin() || !ofRoutes.empty()) {
        likely.erase(others, likely.end());
    }
    likely.insert(likely.begin(), ofRoutes.begin(), ofRoutes.end());
    Remedies all;
    for (const NeighbourConfig& by : likely) {
        if (auto remedy = routedBy(of, vrf, address, by)) {
            all.push_back(std::move(*remedy));
        }
    }
    return all;
}

} // namespace

Remedies neighbourKnown(const RemedyCase& of) {
    const PortIndex port = of.port("neighbour");
    const auto address = Lumo::IpGenAddr::fromText(of.value("neighbour", "address"));
    if (port == noPort || address.family() == Lumo::IpFamily::none) {
        return {};
    }
    Remedy remedy = of.unchanged();
    remedy.situation.neighbours.push_back({address, port, anyDevice});
    remedy.note =
        fmt::format("{} stands for the MAC address of {}", macText(anyDevice), address.text());
    const std::string& name = of.situation.config.ports[port].name;
    if (of.situation.isLive) {
        // The kernel asks for the neighbour, and the agent hears of it.
        remedy.command = fmt::format("ping -c 1 -I {} {}", shellWord(name), address.text());
        remedy.note = fmt::format("if {} answers; the agent asks by itself, too, and a packet "
                                  "waits up to {} s for the answer; {}",
                                  address.text(), WaitingPackets::longest.count(), remedy.note);
    } else {
        remedy.command =
            configEntry(of.situation, "neighbours",
                        fmt::format("  - {{address: \"{}\", port: {}, mac: \"{}\"}}",
                                    address.text(), yamlWord(name), macText(anyDevice)));
    }
    return {remedy};
}

Remedies routeMade(const RemedyCase& of) {
    return routed(of, of.value("route", "vrf"),
                  Lumo::IpGenAddr::fromText(of.value("route", "address")));
}

Remedies vrfMade(const RemedyCase& of) {
    return routed(of, of.value("nexthop", "vrf"),
                  Lumo::IpGenAddr::fromText(of.value("nexthop", "address")));
}

Remedies fecMade(const RemedyCase& of) {
    // The interface of a FEC has no name, but its number.
    const std::string text = of.value("nexthop", "interface");
    std::uint64_t value = 0;
    if (text.starts_with("0x")) {
        std::from_chars(text.data() + 2, text.data() + text.size(), value, 16);
    }
    const Lumo::IntfId intf = Lumo::IntfId::fromValue(value);
    if (!Tessel::Fib::FecId::isHierarchicalIntfId(intf)) {
        return {};
    }
    Remedies all;
    for (const NeighbourConfig& by : likelyNeighbours(of.situation, of.frame.port)) {
        Remedy remedy = of.unchanged();
        remedy.situation.config.fecs.push_back({intf.id(), {{by.port, by.address, 1}}});
        remedy.command = configEntry(
            of.situation, "fecs",
            fmt::format("  - {{id: {}, vias: [{{interface: {}, nexthop: \"{}\"}}]}}", intf.id(),
                        yamlWord(of.situation.config.ports[by.port].name), by.address.text()));
        remedy.note = "the next hop is a neighbour that is known";
        all.push_back(std::move(remedy));
    }
    return all;
}

} // namespace OvixAgent
