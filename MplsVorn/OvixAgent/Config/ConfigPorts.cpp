#include "Config/ConfigPorts.h"

#include <fmt/format.h>
#include <map>
#include <tuple>

#include "Config/ConfigText.h"

namespace OvixAgent {

namespace {

constexpr std::size_t maxPortNameSize = 15; ///< IFNAMSIZ without the terminator
constexpr std::uint32_t minMtu = 68;        ///< RFC 791
constexpr std::uint32_t maxMtu = 65535;
constexpr std::uint16_t maxVlan = 4094;

/// As Linux names interfaces; besides no "=", which ends a port's name on the command line.
std::string readPortName(const ConfigValue& value) {
    std::string name = value.name("port name", maxPortNameSize);
    const bool isBad =
        name == "." || name == ".." || name.find_first_of("/:= \t") != std::string::npos;
    if (isBad) {
        value.fail(
            fmt::format("{} cannot name a port (no \"/\", \":\", \"=\" or blank)", inQuotes(name)));
    }
    if (name == "cpu" || name == "lo") {
        value.fail(fmt::format("{} cannot name a port: {}.pcap is one of the agent's own captures",
                               inQuotes(name), name));
    }
    return name;
}

Tagging readTagging(const ConfigValue& value) {
    const std::string_view text = value.text("tagging");
    if (const auto kind = Tessel::valueOf<Tagging::Kind>(text)) {
        return {*kind, 0, 0};
    }
    if (text.empty() || text.front() < '0' || text.front() > '9') {
        value.fail(fmt::format("tagging {} is not keep, none, or a VLAN id", inQuotes(text)));
    }
    return {Tagging::Kind::vlan, value.number<std::uint16_t>("VLAN id", 1, maxVlan), 0};
}

std::vector<InterfaceAddress> readAddresses(const ConfigValue& list) {
    std::vector<InterfaceAddress> addresses;
    for (std::size_t i = 0; i < list.listSize(); ++i) {
        addresses.push_back(readInterfaceAddress(list.item(i)));
    }
    return addresses;
}

std::uint16_t readVlanId(const ConfigValue& value) {
    return value.number<std::uint16_t>("VLAN id", 1, maxVlan);
}

/// One VLAN id, or the outer and the inner one.
Tagging readVlans(const ConfigValue& value) {
    if (value.kind() != ConfigValue::Kind::list) {
        return {Tagging::Kind::subInterface, readVlanId(value), 0};
    }
    if (value.listSize() != 2) {
        value.fail(fmt::format("{} VLAN ids given, allowed are an outer and an inner one",
                               value.listSize()));
    }
    const ConfigValue outer = value.item(0);
    const ConfigValue inner = value.item(1);
    return {Tagging::Kind::subInterface, readVlanId(outer), readVlanId(inner)};
}

std::string vlanText(const Tagging& tagging) {
    return tagging.innerVlan == 0 ? fmt::format("{}", tagging.vlan)
                                  : fmt::format("[{}, {}]", tagging.vlan, tagging.innerVlan);
}

/// What a VLAN sub-interface has of its own; the parent is found once all ports are known.
void readSubInterface(const ConfigMap& map, PortConfig& port) {
    const auto vlan = map.find("vlan");
    if (!map.find("parent")) {
        if (vlan) {
            vlan->fail("only a sub-interface, which names its parent, has a vlan; see tagging");
        }
        return;
    }
    for (const std::string_view key : {"kind", "tagging"}) {
        if (const auto given = map.find(key)) {
            given->fail(fmt::format("{} has no effect on a sub-interface: its parent and its vlan "
                                    "decide",
                                    inQuotes(given->text(key))));
        }
    }
    port.tagging = readVlans(map.required("vlan"));
}

void readDevice(const ConfigMap& map, PortConfig& port) {
    if (port.kind == PortKind::dpdk) {
        port.device = map.required("device", ": the PCI address or virtual device of kind dpdk")
                          .name("device", 255);
    } else if (const auto device = map.find("device")) {
        device->fail("only a port of kind dpdk has a device");
    }
}

PortConfig readPort(const ConfigValue& value) {
    const ConfigMap map(value);
    PortConfig port;
    port.mtu = map.numberOr("mtu", minMtu, maxMtu, port.mtu);
    port.ownMtu = map.find("mtu").has_value();
    port.name = readPortName(map.required("name"));
    port.kind = map.choiceOr("kind", port.kind);
    readDevice(map, port);
    // A port with a kind is an interface of this host and has the interface's address.
    if (map.find("mac") || (!map.find("kind") && !map.find("parent"))) {
        port.mac = readUnicastMac(map.required(
            "mac", fmt::format(": port {} has no kind to take it from", inQuotes(port.name))));
    }
    if (const auto addresses = map.find("addresses")) {
        port.addresses = readAddresses(*addresses);
    }
    if (const auto tagging = map.find("tagging")) {
        port.tagging = readTagging(*tagging);
    }
    readSubInterface(map, port);
    port.isUp = map.choiceOr("status", PortStatus::up) == PortStatus::up;
    port.vrf = readVrf(map);
    port.routesIp = map.find("vrf").has_value();
    port.upstreamLabels = map.booleanOr("upstream-labels", port.upstreamLabels);
    port.mpls = map.booleanOr("mpls", port.vrf == L3::defaultVrf);
    port.reversePath = map.choiceOr("reverse-path", port.reversePath);
    map.refuseOthers();
    return port;
}

/// The MTU of a parent without one of its own is that of the interface.
void checkMtu(const ConfigMap& map, const PortConfig& port, const PortConfig& physical) {
    if (physical.ownMtu && port.mtu > physical.mtu) {
        map.failFor("mtu",
                    fmt::format("mtu {} is above that of the parent, {}", port.mtu, physical.mtu));
    }
}

/// Finds the parents of the sub-interfaces, which have what they lack of their own from them.
void connectSubInterfaces(const ConfigValue& list, std::vector<PortConfig>& ports) {
    const PortNames names(ports);
    std::map<std::tuple<PortIndex, std::uint16_t, std::uint16_t>, std::size_t> lines;
    for (std::size_t i = 0; i < ports.size(); ++i) {
        PortConfig& port = ports[i];
        const ConfigValue item = list.item(i);
        const ConfigMap map(item);
        const auto parent = map.find("parent");
        if (!parent) {
            continue;
        }
        port.parent = names.read(*parent);
        const PortConfig& physical = ports[port.parent];
        if (physical.tagging.kind == Tagging::Kind::subInterface) {
            parent->fail(fmt::format("{} is a sub-interface itself; two VLAN ids take its place",
                                     inQuotes(physical.name)));
        }
        const auto [first, isNew] = lines.emplace(
            std::tuple(port.parent, port.tagging.vlan, port.tagging.innerVlan), item.line());
        if (!isNew) {
            map.failFor("vlan", fmt::format("{} already has a sub-interface of VLAN {} at line {}",
                                            inQuotes(physical.name), vlanText(port.tagging),
                                            first->second));
        }
        port.kind = physical.kind;
        port.isUp = port.isUp && physical.isUp;
        port.mac = map.find("mac") ? port.mac : physical.mac;
        port.mtu = port.ownMtu ? port.mtu : physical.mtu;
        checkMtu(map, port, physical);
        port.ownMtu = port.ownMtu || physical.ownMtu;
    }
}

} // namespace

PortNames::PortNames(const std::vector<PortConfig>& ports) : ports_(&ports) {
    for (const PortConfig& port : ports) {
        indices_.emplace(port.name, static_cast<PortIndex>(names_.size()));
        names_.emplace_back(port.name);
        intfIds_.emplace_back(port.name);
    }
}

PortIndex PortNames::read(const ConfigValue& value) const {
    const std::string_view name = value.text("a port's name");
    const auto found = indices_.find(name);
    if (found == indices_.end()) {
        value.fail(fmt::format("no port is named {}{}", inQuotes(name), suggestion(name, names_)));
    }
    return found->second;
}

std::string readVrf(const ConfigMap& map) {
    const auto vrf = map.find("vrf");
    return vrf ? vrf->name("VRF name", L3::VrfName::maxSize) : std::string(L3::defaultVrf);
}

std::vector<PortConfig> readPorts(const ConfigValue& list) {
    if (list.listSize() == 0) {
        list.fail("at least one port is needed");
    }
    std::vector<PortConfig> ports;
    std::unordered_map<std::string, std::size_t> lines;
    for (std::size_t i = 0; i < list.listSize(); ++i) {
        const ConfigValue item = list.item(i);
        ports.push_back(readPort(item));
        const auto [first, isNew] = lines.emplace(ports.back().name, item.line());
        if (!isNew) {
            const ConfigMap map(item);
            map.failFor("name", fmt::format("port {} is already defined at line {}",
                                            inQuotes(ports.back().name), first->second));
        }
    }
    connectSubInterfaces(list, ports);
    return ports;
}

std::vector<NeighbourConfig> readNeighbours(const ConfigValue& list, const PortNames& ports) {
    std::vector<NeighbourConfig> neighbours;
    std::map<std::tuple<PortIndex, Lumo::IpFamily, std::array<std::uint8_t, 16>>, std::size_t>
        lines;
    for (std::size_t i = 0; i < list.listSize(); ++i) {
        const ConfigValue item = list.item(i);
        const ConfigMap map(item);
        const ConfigValue address = map.required("address");
        const NeighbourConfig neighbour{readIpAddress(address), ports.read(map.required("port")),
                                        readUnicastMac(map.required("mac"))};
        map.refuseOthers();
        const auto [first, isNew] = lines.emplace(
            std::tuple(neighbour.port, neighbour.address.family(), neighbour.address.bytes()),
            item.line());
        if (!isNew) {
            address.fail(fmt::format("neighbour {} on this port is already defined at line {}",
                                     inQuotes(address.text("address")), first->second));
        }
        neighbours.push_back(neighbour);
    }
    return neighbours;
}

} // namespace OvixAgent
