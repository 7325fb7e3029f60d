#include "Explain/Remedies.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>

#include "Explain/FrameRemedies.h"
#include "Explain/RemedyWords.h"
#include "Explain/TableRemedies.h"
#include "Forwarding/WaitingPackets.h"
#include "State/RoadSteps.h"

namespace OvixAgent {

namespace {

/// What the remedies are made from.
struct Case {
    const Situation& situation;
    const GivenFrame& frame;
    const Walk& walk;

    const Ovix::RoadNote* last(std::string_view step) const {
        const auto found = std::find_if(walk.notes.rbegin(), walk.notes.rend(),
                                        [&](const auto& note) { return note.step == step; });
        return found != walk.notes.rend() ? &*found : nullptr;
    }
    /// Of the note of that kind that came last; empty when there is none.
    std::string value(std::string_view step, std::string_view name) const {
        const Ovix::RoadNote* const note = last(step);
        const std::string* const held = note != nullptr ? note->value(name) : nullptr;
        return held != nullptr ? *held : std::string();
    }
    PortIndex port(std::string_view step, std::string_view name = "port") const {
        return portNamed(situation.config, value(step, name));
    }
    Remedy unchanged() const { return {{}, {}, situation, frame}; }
};

using Remedies = std::vector<Remedy>;

/// For documentation (RFC 7042 section 2.1.2).
constexpr Lumo::EthAddr anyDevice{0x00, 0x00, 0x5e, 0x00, 0x53, 0x02};

Remedies portUp(const Case& of, PortIndex port) {
    if (port == noPort || of.situation.config.ports[port].isUp) {
        return {};
    }
    Remedy remedy = of.unchanged();
    remedy.situation.config.ports[port].isUp = true;
    const std::string& name = of.situation.config.ports[port].name;
    remedy.command = of.situation.isLive ? fmt::format("ip link set dev {} up", shellWord(name))
                                         : portKey(of.situation, port, "status: up");
    return {remedy};
}

Remedies egressUp(const Case& of) {
    return portUp(of, of.port("mtu"));
}

Remedies neighbourKnown(const Case& of) {
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

Remedies greaterMtu(const Case& of) {
    const PortIndex port = of.port("mtu");
    std::uint32_t length = 0;
    const std::string text = of.value("mtu", "length");
    std::from_chars(text.data(), text.data() + text.size(), length);
    constexpr std::uint32_t most = 65535;
    if (port == noPort || length > most) {
        return {};
    }
    Remedies all;
    if (of.situation.config.ports[port].mtu < length) {
        Remedy remedy = of.unchanged();
        remedy.situation.config.ports[port].mtu = length;
        const std::string& name = of.situation.config.ports[port].name;
        remedy.command = of.situation.isLive
                             ? fmt::format("ip link set dev {} mtu {}", shellWord(name), length)
                             : portKey(of.situation, port, fmt::format("mtu: {}", length));
        remedy.note = "the other end of the link has to take such frames, too";
        all.push_back(std::move(remedy));
    }
    for (Remedy& remedy : withoutViaMtu(of.situation, of.frame, of.walk, length)) {
        all.push_back(std::move(remedy));
    }
    return all;
}

/// A route to just that address in a VRF, by each of the likely neighbours.
Remedies routed(const Case& of, const std::string& vrf, const Lumo::IpGenAddr& address) {
    Remedies all;
    std::vector<NeighbourConfig> likely = likelyNeighbours(of.situation, of.frame.port);
    std::stable_partition(likely.begin(), likely.end(), [&](const NeighbourConfig& neighbour) {
        return of.situation.config.ports[neighbour.port].vrf == vrf;
    });
    for (const NeighbourConfig& by : likely) {
        if (by.address.family() != address.family()) {
            continue;
        }
        const std::string& port = of.situation.config.ports[by.port].name;
        Mpls::ViaOptions options;
        options.intf = Lumo::IntfId(port);
        options.nexthop = by.address;
        const auto via = Mpls::Via::forward(options);
        if (!via) {
            continue;
        }
        Remedy remedy = of.unchanged();
        L3::Route route{{L3::RouteKey::mainTable, address, address.bits()},
                        L3::Route::Kind::forward,
                        {{via.value(), 1}},
                        L3::VrfName(std::string_view(vrf))};
        remedy.situation.config.routes.push_back({std::move(route), 0});
        const bool isFromZebra = of.situation.isLive && !of.situation.tablesName.empty();
        const bool isIpv4 = address.family() == Lumo::IpFamily::ipv4;
        const std::string inVrf = vrf == L3::defaultVrf ? "" : " vrf " + vrf;
        remedy.command =
            isFromZebra
                ? "vtysh -c 'configure terminal' -c " +
                      shellWord(fmt::format("{} route {} {} {}{}", isIpv4 ? "ip" : "ipv6",
                                            hostPrefix(address), by.address.text(), port, inVrf))
                : configEntry(of.situation, "routes",
                              fmt::format("  - {{vrf: {}, prefix: \"{}\", via: {{interface: "
                                          "{}, nexthop: \"{}\"}}}}",
                                          yamlWord(vrf), hostPrefix(address), yamlWord(port),
                                          by.address.text()));
        remedy.note = "the next hop is a neighbour that is known";
        all.push_back(std::move(remedy));
    }
    return all;
}

Remedies routeMade(const Case& of) {
    return routed(of, of.value("route", "vrf"),
                  Lumo::IpGenAddr::fromText(of.value("route", "address")));
}

Remedies vrfMade(const Case& of) {
    return routed(of, of.value("nexthop", "vrf"),
                  Lumo::IpGenAddr::fromText(of.value("nexthop", "address")));
}

Remedies withoutControlWord(const Case& of) {
    const PortIndex port = of.port("nexthop", "interface");
    Remedies all;
    for (std::size_t i = 0; i < of.situation.config.pseudowires.size(); ++i) {
        const PseudowireConfig& pseudowire = of.situation.config.pseudowires[i].value;
        if (pseudowire.port == port && pseudowire.controlWord) {
            Remedy remedy = of.unchanged();
            remedy.situation.config.pseudowires[i].value.controlWord = false;
            remedy.command = fmt::format("# in {}, of pseudowire {}\ncontrol-word: false",
                                         yamlWord(of.situation.file), yamlWord(pseudowire.name));
            remedy.note = "both ends of a pseudowire have to agree; the other end sends none";
            all.push_back(std::move(remedy));
        }
    }
    return all;
}

Remedies keyOfPort(const Case& of, bool PortConfig::*key, const char* name) {
    Remedy remedy = of.unchanged();
    remedy.situation.config.ports[of.frame.port].*key = true;
    remedy.command = portKey(of.situation, of.frame.port, fmt::format("{}: true", name));
    return {remedy};
}
Remedies mplsAllowed(const Case& of) {
    return keyOfPort(of, &PortConfig::mpls, "mpls");
}
Remedies upstreamLabelsTaken(const Case& of) {
    return keyOfPort(of, &PortConfig::upstreamLabels, "upstream-labels");
}

Remedies mplsRoutingOn(const Case& of) {
    Remedy remedy = of.unchanged();
    remedy.situation.config.mplsRouting = true;
    remedy.command = fmt::format("# in {}\nmpls-routing: true", yamlWord(of.situation.file));
    return {remedy};
}

Remedies ipRouted(const Case& of) {
    Remedy remedy = of.unchanged();
    remedy.situation.config.ports[of.frame.port].routesIp = true;
    remedy.command = portKey(of.situation, of.frame.port, "vrf: default");
    return {remedy};
}

/// By what the label's lookup has found.
Remedies labelRouted(const Case& of) {
    const std::string found = of.value("table", "found");
    if (found == "no usable via") {
        Remedies all;
        for (PortIndex port = 0; port < of.situation.config.ports.size(); ++port) {
            for (Remedy& remedy : portUp(of, port)) {
                all.push_back(std::move(remedy));
            }
        }
        return all;
    }
    return tableRemedies(of.situation, of.frame, of.walk);
}

Remedies frameChanged(const Case& of) {
    return frameRemedies(of.situation, of.frame, of.walk);
}

struct RemediesOf {
    std::string_view reason;
    Remedies (*remedies)(const Case& of);
};
constexpr std::array<RemediesOf, 21> remediesByReason{{
    {Reason::nothingResolved, labelRouted},
    {Reason::noNexthopBeneath, labelRouted},
    {Reason::noNexthop, labelRouted},
    {Reason::portDown, egressUp},
    {Reason::noNeighbour, neighbourKnown},
    {Reason::mtuExceeded, greaterMtu},
    {Reason::noRoute, routeMade},
    {Reason::droppingRoute, routeMade},
    {Reason::unknownVrf, vrfMade},
    {Reason::noControlWord, withoutControlWord},
    {Reason::pseudowireCutShort, withoutControlWord},
    {Reason::mplsNotAllowed, mplsAllowed},
    {Reason::upstreamLabel, upstreamLabelsTaken},
    {Reason::mplsRoutingOff, mplsRoutingOn},
    {"Mpls routing not enabled", mplsRoutingOn},
    {Reason::notMpls, ipRouted},
    {Reason::otherStation, frameChanged},
    {Reason::ttlExpired, frameChanged},
    {Reason::mplsEcho, frameChanged},
    {"No valid vias adjacency for label %s", labelRouted},
    {"No adjacency for label %s", labelRouted},
}};

} // namespace

Remedies remediesFor(const Situation& situation, const GivenFrame& frame, const Walk& walk) {
    const Case of{situation, frame, walk};
    const auto found =
        std::find_if(remediesByReason.begin(), remediesByReason.end(),
                     [&](const RemediesOf& each) { return each.reason == walk.reason; });
    // Other reasons why frames are punted are in the frames.
    return found != remediesByReason.end() ? found->remedies(of)
           : walk.kind == FateKind::punted ? frameChanged(of)
                                           : Remedies();
}

} // namespace OvixAgent
