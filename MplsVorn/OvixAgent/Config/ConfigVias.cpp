#include "Config/ConfigVias.h"

#include <fmt/format.h>
#include <limits>

#include "Config/ConfigAddress.h"

namespace OvixAgent {

namespace {

constexpr std::size_t maxVias = 599;
constexpr std::size_t maxLabels = 65535 / 4; ///< more do not fit the largest MTU
constexpr std::uint32_t implicitNull = 3;    ///< RFC 3032
constexpr std::uint32_t anyWeight = std::numeric_limits<std::uint32_t>::max();

constexpr ConfigChoice actions[]{{"push", 1}, {"pop", 2}, {"swap", 3}};
constexpr ConfigChoice ttlModes[]{{"uniform", 0}, {"pipe", 1}};
constexpr ConfigChoice payloads[]{{"undefined", 0}, {"none", 1},     {"ipv4", 2},
                                  {"ipv6", 3},      {"ethernet", 4}, {"auto", 5}};

/// The operation's labels fit its action: none for pop, some for push and swap.
std::vector<std::uint32_t> readLabels(const ConfigMap& map, ViaAction action) {
    const std::optional<ConfigValue> list = map.find("labels");
    if (action == ViaAction::pop) {
        if (list) {
            list->fail("action pop takes no labels");
        }
        return {};
    }
    if (!list) {
        map.failFor("labels", "missing (push and swap need at least one label)");
    }
    if (list->listSize() == 0 || list->listSize() > maxLabels) {
        list->fail(fmt::format("{} labels given, push and swap take 1 to {}", list->listSize(),
                               maxLabels));
    }
    return readLabelList(*list, "use action pop instead");
}

/// Such a via always pops.
bool isLookup(ViaType type) {
    return type == ViaTypes::ipLookup || type == ViaTypes::ipLookupPerPrefix;
}

/// A via must lead somewhere. The payload of an IP lookup is routed in the VRF, which always has a
/// name.
void checkDestination(const ConfigValue& value, const ViaConfig& via, ViaType type) {
    if (!isLookup(type) && !via.port && !via.nexthop && via.fec == 0) {
        value.fail("leads nowhere: interface, nexthop or fec is needed");
    }
}

ViaConfig readVia(const ConfigValue& value, ViaType type, const PortNames& ports) {
    const ConfigMap map(value, {"interface", "nexthop", "weight", "action", "labels", "ttl", "tc",
                                "push-ttl", "payload", "mtu", "vlan", "fec", "vrf"});
    ViaConfig via;
    if (const auto port = map.find("interface")) {
        via.port = ports.read(*port);
    }
    if (const auto nexthop = map.find("nexthop")) {
        via.nexthop = readIpAddress(*nexthop);
    }
    via.weight = map.numberOr<std::uint32_t>("weight", 0, anyWeight, via.weight);
    if (!isLookup(type) || map.find("action")) {
        via.action = static_cast<ViaAction>(map.required("action").choice("action", actions));
    }
    via.labels = readLabels(map, via.action);
    via.ttl = static_cast<TtlMode>(map.choiceOr("ttl", ttlModes, 0));
    via.tc = map.optionalNumber<std::uint8_t>("tc", 0, 7);
    via.pushTtl = map.optionalNumber<std::uint8_t>("push-ttl", 1, 255);
    via.payload = static_cast<PayloadType>(map.choiceOr("payload", payloads, 5));
    via.mtu = map.optionalNumber<std::uint32_t>("mtu", 68, 65535);
    via.vlan = map.optionalNumber<std::uint16_t>("vlan", 1, 4094);
    via.fec = map.numberOr<std::uint64_t>("fec", 0, maxFecId, 0);
    if (const auto vrf = map.find("vrf")) {
        via.vrf = vrf->name("VRF name", maxVrfNameSize);
    }
    checkDestination(value, via, type);
    return via;
}

std::uint64_t totalWeight(const ViaList& vias) {
    std::uint64_t total = 0;
    for (const ViaConfig& via : vias) {
        total += via.weight;
    }
    return total;
}

} // namespace

std::vector<std::uint32_t> readLabelList(const ConfigValue& list, std::string_view instead) {
    std::vector<std::uint32_t> labels;
    labels.reserve(list.listSize());
    for (std::size_t i = 0; i < list.listSize(); ++i) {
        const ConfigValue item = list.item(i);
        labels.push_back(item.number<std::uint32_t>("label", 0, maxLabel));
        if (labels.back() == implicitNull) {
            item.fail(fmt::format("label 3 (implicit null) never stands in a frame; {}", instead));
        }
    }
    return labels;
}

void checkWeights(const ConfigValue& value, std::uint64_t total) {
    if (total == 0 || total > anyWeight) {
        value.fail(fmt::format("the weights add up to {}, which is out of range (1..{})", total,
                               anyWeight));
    }
}

ViaList readViaList(const ConfigValue& list, ViaType type, const PortNames& ports,
                    bool mayBeEmpty) {
    const std::size_t size = list.listSize();
    if (size == 0 && mayBeEmpty) {
        return {};
    }
    if (size == 0 || size > maxVias) {
        list.fail(fmt::format("{} vias given, allowed are 1 to {}", size, maxVias));
    }
    ViaList vias;
    vias.reserve(size);
    for (std::size_t i = 0; i < size; ++i) {
        vias.push_back(readVia(list.item(i), type, ports));
    }
    checkWeights(list, totalWeight(vias));
    return vias;
}

ViaList readVias(const ConfigMap& map, ViaType type, const PortNames& ports) {
    const std::optional<ConfigValue> single = map.find("via");
    if (!single) {
        const ConfigValue list = map.required("vias");
        return readViaList(list, type, ports);
    }
    if (map.find("vias")) {
        single->fail("via and vias cannot both be given");
    }
    ViaList vias{readVia(*single, type, ports)};
    checkWeights(*single, totalWeight(vias));
    return vias;
}

} // namespace OvixAgent
