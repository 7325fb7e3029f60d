#include "Config/ConfigVias.h"

#include <fmt/format.h>

#include "Config/ConfigText.h"

namespace OvixAgent {

namespace {

using Lumo::MplsLabel;
using Lumo::MplsLabelAction;
using Mpls::LfibViaType;
using Mpls::PayloadType;
using Mpls::Via;
using Mpls::ViaOptions;
using Mpls::WeightedVia;

/// The labels that the action takes: none for pop, some for push and swap.
std::vector<MplsLabel> readLabels(const ConfigMap& map, MplsLabelAction action) {
    const std::optional<ConfigValue> list = map.find("labels");
    if (action == MplsLabelAction::pop) {
        if (list) {
            list->fail("action pop takes no labels");
        }
        return {};
    }
    if (!list) {
        map.failFor("labels", "missing (push and swap need at least one label)");
    }
    if (list->listSize() == 0 || list->listSize() > Via::maxLabels) {
        list->fail(fmt::format("{} labels given, push and swap take 1 to {}", list->listSize(),
                               Via::maxLabels));
    }
    return readLabelList(*list, "use action pop instead");
}

void readTrafficClass(const ConfigMap& map, ViaOptions& options) {
    const auto tc = map.find("tc");
    options.tcUniform =
        tc && tc->kind() == ConfigValue::Kind::scalar && tc->text("tc") == "uniform";
    if (!options.tcUniform) {
        options.tc = map.optionalNumber<std::uint8_t>("tc", 0, 7);
    }
    options.pushTc = map.optionalNumber<std::uint8_t>("push-tc", 0, 7);
}

ViaOptions readOptions(const ConfigMap& map, const PortNames& ports) {
    ViaOptions options;
    if (const auto port = map.find("interface")) {
        options.intf = ports.readIntfId(*port);
    }
    if (const auto nexthop = map.find("nexthop")) {
        options.nexthop = readIpAddress(*nexthop);
    }
    options.ttl = map.choiceOr("ttl", options.ttl);
    readTrafficClass(map, options);
    options.pushTtl = map.numberOr<std::uint8_t>("push-ttl", 1, 255, 0);
    options.payload = map.choiceOr("payload", options.payload);
    options.mtu = map.numberOr("mtu", Mpls::Via::minMtu, Mpls::Via::maxMtu, 0U);
    options.vlan = map.numberOr<std::uint16_t>("vlan", 1, Via::maxVlan, 0);
    options.entropy = map.booleanOr("entropy", options.entropy);
    const std::string vrf = readVrf(map);
    options.vrf = vrf == L3::defaultVrf ? std::string_view() : vrf;
    return options;
}

/// What could have no effect is refused.
void refuseVain(const ConfigMap& map, MplsLabelAction action, const ViaOptions& options,
                const PortNames& ports) {
    const auto refuseIf = [&map](bool isVain, std::string_view key, std::string_view rule) {
        if (const auto given = map.find(key); given && isVain) {
            given->fail(std::string(rule));
        }
    };
    refuseIf(action != MplsLabelAction::pop, "payload", "only a pop exposes a payload");
    refuseIf(true, "vrf", "goes with type ip-lookup or ip-lookup-per-prefix, which route in a VRF");
    refuseIf(options.tcUniform && options.payload == PayloadType::ethernet, "tc",
             "uniform writes the class of a packet (RFC 3270), and an Ethernet frame has none");
    refuseIf(options.payload == PayloadType::ethernet, "ttl",
             "goes with a packet, and an Ethernet frame has none");
    if (const auto port = map.find("interface"); port && ports.isSubInterface(ports.read(*port))) {
        refuseIf(true, "vlan",
                 fmt::format("{} is a sub-interface, which has its own VLAN",
                             inQuotes(port->text("interface"))));
    }
}

/// A via of a type that looks up in a VRF pops, and leads nowhere else. The packet keeps its TTL
/// and its class (the pipe model of RFC 3443 and RFC 3270).
Via readLookUp(const ConfigMap& map, const ConfigValue& value) {
    for (const std::string_view key : {"interface", "nexthop", "labels", "ttl", "tc", "push-tc",
                                       "push-ttl", "mtu", "vlan", "fec", "entropy"}) {
        if (const auto given = map.find(key)) {
            given->fail("a lookup in a VRF takes vrf and payload only");
        }
    }
    if (map.choiceOr("action", MplsLabelAction::pop) != MplsLabelAction::pop) {
        map.failFor("action", "a lookup in a VRF pops");
    }
    return viaOrFail(value, Via::popAndLookUp(std::string_view(readVrf(map)),
                                              map.choiceOr("payload", PayloadType::automatic)));
}

Tessel::Result<Via> makeVia(LfibViaType type, MplsLabelAction action, Via::Labels labels,
                            const ViaOptions& options, std::uint64_t fec) {
    if (fec != 0) {
        return type == LfibViaType::externalFec
                   ? Via::towardFec(fec, action, labels, options)
                   : Tessel::Refused{"fec goes with type external-fec"};
    }
    switch (action) {
    case MplsLabelAction::push:
        return Via::push(labels, options);
    case MplsLabelAction::swap:
        return Via::swap(labels, options);
    default:
        return Via::pop(options);
    }
}

WeightedVia readVia(const ConfigValue& value, LfibViaType type, const PortNames& ports) {
    const ConfigMap map(value);
    const auto weight = map.numberOr<std::uint32_t>("weight", 0, maxWeight, 1);
    if (Mpls::looksUp(type)) {
        const Via lookUp = readLookUp(map, value);
        map.refuseOthers();
        return {lookUp, weight};
    }
    const auto action = map.required("action").choice<MplsLabelAction>("action");
    const std::vector<MplsLabel> labels = readLabels(map, action);
    const auto fec = map.numberOr<std::uint64_t>("fec", 0, Via::maxFec, 0);
    const ViaOptions options = readOptions(map, ports);
    refuseVain(map, action, options, ports);
    map.refuseOthers();
    return {viaOrFail(value, makeVia(type, action, labels, options, fec)), weight};
}

void checkWeights(const ConfigValue& value, std::span<const WeightedVia> vias) {
    std::uint64_t total = 0;
    for (const WeightedVia& via : vias) {
        total += via.weight;
    }
    OvixAgent::checkWeights(value, total);
}

} // namespace

MplsLabel readLabel(const ConfigValue& value, std::string_view instead) {
    const MplsLabel label(value.number<std::uint32_t>("label", 0, MplsLabel::max));
    if (label == Lumo::implicitNull) {
        value.fail(fmt::format("label 3 (implicit null) never stands in a frame (RFC 3032 section "
                               "2.1); {}",
                               instead));
    }
    return label;
}

MplsLabel readIncomingLabel(const ConfigValue& value) {
    const MplsLabel label(value.number<std::uint32_t>("label", 0, MplsLabel::max));
    if (const auto allowed = Mpls::checkRouteLabel(label); !allowed) {
        value.fail(allowed.refused().what);
    }
    return label;
}

std::vector<MplsLabel> readLabelList(const ConfigValue& list, std::string_view instead) {
    std::vector<MplsLabel> labels;
    labels.reserve(list.listSize());
    for (std::size_t i = 0; i < list.listSize(); ++i) {
        const ConfigValue item = list.item(i);
        labels.push_back(readLabel(item, instead));
    }
    return labels;
}

void checkWeights(const ConfigValue& value, std::uint64_t total) {
    if (total == 0 || total > maxWeight) {
        value.fail(fmt::format("the weights add up to {}, which is out of range (1..{})", total,
                               maxWeight));
    }
}

Via viaOrFail(const ConfigValue& value, const Tessel::Result<Via>& via) {
    if (!via) {
        value.fail(via.refused().what);
    }
    return via.value();
}

std::vector<WeightedVia> readViaList(const ConfigValue& list, LfibViaType type,
                                     const PortNames& ports, bool mayBeEmpty) {
    const std::size_t size = list.listSize();
    if (size == 0 && mayBeEmpty) {
        return {};
    }
    if (size == 0 || size > maxVias) {
        list.fail(fmt::format("{} vias given, allowed are 1 to {}", size, maxVias));
    }
    std::vector<WeightedVia> vias;
    vias.reserve(size);
    for (std::size_t i = 0; i < size; ++i) {
        vias.push_back(readVia(list.item(i), type, ports));
    }
    checkWeights(list, vias);
    return vias;
}

std::vector<WeightedVia> readVias(const ConfigMap& map, LfibViaType type, const PortNames& ports) {
    const std::optional<ConfigValue> single = map.find("via");
    if (!single) {
        return readViaList(map.required("vias"), type, ports);
    }
    if (map.find("vias")) {
        single->fail("via and vias cannot both be given");
    }
    std::vector<WeightedVia> vias{readVia(*single, type, ports)};
    checkWeights(*single, vias);
    return vias;
}

} // namespace OvixAgent
