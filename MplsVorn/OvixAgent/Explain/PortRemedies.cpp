// What a port, or its interface, has to be like.

#include <charconv>
#include <fmt/format.h>

#include "Explain/RemedyCase.h"
#include "Explain/TableRemedies.h"
#include "State/PortTable.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

namespace {

/// What has a port up again. No command of this host connects a cable.
std::string upCommand(const Situation& situation, PortIndex port) {
    const std::string& name = situation.config.ports[port].name;
    if (!situation.isLive) {
        return portKey(situation, port, "status: up");
    }
    const auto problem = situation.problems.find(port);
    if (problem == situation.problems.end()) {
        return fmt::format("ip link set dev {} up", shellWord(name));
    }
    const auto down = Tessel::valueOf<PortDown>(problem->second);
    if (down == PortDown::configured) {
        return portKey(situation, port, "status: up");
    }
    if (down == PortDown::disabled) {
        return fmt::format("ip link set dev {} up", shellWord(name));
    }
    return down == PortDown::noCarrier
               ? fmt::format("# {} has no carrier: connect it, or set the other end up", name)
           : down == PortDown::absent
               ? fmt::format("# there is no interface {}: add it again", name)
               : fmt::format("# port {} waits: {}", name, problem->second);
}

Remedies keyOfPort(const RemedyCase& of, bool PortConfig::*key, const char* name) {
    Remedy remedy = of.unchanged();
    remedy.situation.config.ports[of.frame.port].*key = true;
    remedy.command = portKey(of.situation, of.frame.port, fmt::format("{}: true", name));
    return {remedy};
}

} // namespace

Remedies portUp(const RemedyCase& of, PortIndex port) {
    if (port == noPort || of.situation.config.ports[port].isUp) {
        return {};
    }
    Remedy remedy = of.unchanged();
    remedy.situation.config.ports[port].isUp = true;
    const auto problem = of.situation.problems.find(port);
    const PortIndex parent = of.situation.config.ports[port].parent;
    const bool isByParent = parent != noPort && problem != of.situation.problems.end() &&
                            problem->second == Tessel::wordOf(PortDown::parent);
    remedy.command = upCommand(of.situation, isByParent ? parent : port);
    if (isByParent) {
        remedy.situation.config.ports[parent].isUp = true;
    }
    return {remedy};
}

Remedies egressUp(const RemedyCase& of) {
    return portUp(of, of.port("mtu"));
}

Remedies greaterMtu(const RemedyCase& of) {
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

Remedies mplsAllowed(const RemedyCase& of) {
    return keyOfPort(of, &PortConfig::mpls, "mpls");
}
Remedies upstreamLabelsTaken(const RemedyCase& of) {
    return keyOfPort(of, &PortConfig::upstreamLabels, "upstream-labels");
}

Remedies ipRouted(const RemedyCase& of) {
    Remedy remedy = of.unchanged();
    remedy.situation.config.ports[of.frame.port].routesIp = true;
    remedy.command = portKey(of.situation, of.frame.port, "vrf: default");
    return {remedy};
}

/// Where a sub-interface takes the packets, theirs is the check.
Remedies reversePathOff(const RemedyCase& of) {
    Remedies all;
    const PortIndex port = of.port("port");
    if (port == noPort) {
        return all;
    }
    for (const ReversePath check : {ReversePath::loose, ReversePath::off}) {
        Remedy remedy = of.unchanged();
        if (remedy.situation.config.ports[port].reversePath == check) {
            continue;
        }
        remedy.situation.config.ports[port].reversePath = check;
        remedy.command =
            portKey(of.situation, port, fmt::format("reverse-path: {}", Tessel::wordOf(check)));
        remedy.note = check == ReversePath::off
                          ? "any source is then accepted: a route back to it is safer"
                          : "a source is then accepted if any route leads to it (RFC 3704)";
        all.push_back(std::move(remedy));
    }
    return all;
}

/// A sub-interface for the outermost tag, in the VRF of its port, and else as it is without more
/// keys.
Remedies subInterfaceMade(const RemedyCase& of) {
    const Wire::Ethernet header(of.frame.bytes);
    Wire::TagWalk tags(header ? header.etherType() : 0,
                       header ? Wire::Bytes(of.frame.bytes).subspan(Wire::Ethernet::size)
                              : Wire::Bytes());
    constexpr std::size_t longestName = 15; // IFNAMSIZ without the terminator
    Wire::Tag tag;
    if (!tags.next(tag)) {
        return {};
    }
    Remedy remedy = of.unchanged();
    const PortConfig& parent = of.situation.config.ports[of.frame.port];
    PortConfig added = parent;
    added.name = fmt::format("{}.{}", parent.name, tag.vlanId());
    added.parent = of.frame.port;
    added.tagging = {Tagging::Kind::subInterface, tag.vlanId(), 0};
    added.addresses.clear();
    added.reversePath = ReversePath::off;
    const bool isOfVrf = parent.vrf != L3::defaultVrf;
    added.mpls = !isOfVrf;
    if (added.name.size() > longestName || portNamed(of.situation.config, added.name) != noPort) {
        return {};
    }
    remedy.command =
        configEntry(of.situation, "ports",
                    fmt::format("  - {{name: {}, parent: {}, vlan: {}{}}}", yamlWord(added.name),
                                yamlWord(parent.name), tag.vlanId(),
                                isOfVrf ? ", vrf: " + yamlWord(parent.vrf) : ""));
    remedy.situation.config.ports.push_back(std::move(added));
    remedy.note = "names, kinds and sub-interfaces of ports change with the next run";
    return {remedy};
}

} // namespace OvixAgent
