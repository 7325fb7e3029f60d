#include <algorithm>
#include <fmt/format.h>

#include "Config/ConfigSections.h"
#include "Config/ConfigText.h"
#include "Config/ConfigVias.h"

namespace OvixAgent {

namespace {

constexpr std::size_t maxPseudowireNameSize = 100;
constexpr std::size_t maxTunnelLabels = Mpls::Via::maxLabels - 1; ///< above the pseudowire's

std::vector<Lumo::MplsLabel> readTunnelLabels(const ConfigValue& list) {
    if (list.listSize() > maxTunnelLabels) {
        list.fail(fmt::format("{} labels given, allowed are at most {}", list.listSize(),
                              maxTunnelLabels));
    }
    return readLabelList(list, "leave it out");
}

PseudowireConfig readPseudowire(const ConfigValue& value, const PortNames& ports) {
    const ConfigMap map(value);
    PseudowireConfig pseudowire;
    if (const auto labels = map.find("labels")) {
        pseudowire.tunnelLabels = readTunnelLabels(*labels);
    }
    pseudowire.name = map.required("name").name("pseudowire name", maxPseudowireNameSize);
    pseudowire.port = ports.read(map.required("port"));
    pseudowire.label = readIncomingLabel(map.required("label"));
    pseudowire.controlWord = map.booleanOr("control-word", pseudowire.controlWord);
    pseudowire.egress = ports.read(map.required("interface"));
    pseudowire.nexthop = readIpAddress(map.required("nexthop"));
    pseudowire.entropy = map.booleanOr("entropy", pseudowire.entropy);
    if (pseudowire.entropy && pseudowire.tunnelLabels.empty()) {
        map.required("entropy").fail(
            "an entropy label goes beneath the tunnel's labels, and labels "
            "is missing (flow-label needs no tunnel)");
    }
    pseudowire.flowLabel = map.booleanOr("flow-label", pseudowire.flowLabel);
    map.refuseOthers();
    return pseudowire;
}

using PlacedPseudowires = std::vector<Placed<PseudowireConfig>>;

const Placed<PseudowireConfig>* ofPort(const PlacedPseudowires& pseudowires, PortIndex port) {
    const auto found = std::find_if(pseudowires.begin(), pseudowires.end(),
                                    [&](const auto& other) { return other.value.port == port; });
    return found != pseudowires.end() ? &*found : nullptr;
}

/// Its name and its attachment circuit differ from those of the earlier ones.
void checkUnique(const ConfigValue& value, const PseudowireConfig& pseudowire,
                 const PlacedPseudowires& earlier) {
    const auto sameName = std::find_if(earlier.begin(), earlier.end(), [&](const auto& other) {
        return other.value.name == pseudowire.name;
    });
    const ConfigMap map(value);
    if (sameName != earlier.end()) {
        map.required("name").fail(fmt::format("pseudowire {} is already defined at line {}",
                                              inQuotes(pseudowire.name), sameName->line));
    }
    if (const auto* other = ofPort(earlier, pseudowire.port)) {
        map.required("port").fail(fmt::format(
            "{} is already the attachment circuit of pseudowire {} at line {}",
            inQuotes(map.required("port").text("port")), inQuotes(other->value.name), other->line));
    }
}

/// What leaves by an attachment circuit belongs to its customer, so no tunnel starts there.
void checkEgress(const ConfigValue& value, const PseudowireConfig& pseudowire,
                 const PlacedPseudowires& all) {
    if (const auto* other = ofPort(all, pseudowire.egress)) {
        const ConfigMap map(value);
        const ConfigValue egress = map.required("interface");
        egress.fail(fmt::format("{} is the attachment circuit of pseudowire {} at line {}",
                                inQuotes(egress.text("interface")), inQuotes(other->value.name),
                                other->line));
    }
}

} // namespace

std::vector<Placed<PseudowireConfig>> readPseudowires(const ConfigValue& list,
                                                      const PortNames& ports) {
    PlacedPseudowires pseudowires;
    for (std::size_t i = 0; i < list.listSize(); ++i) {
        const ConfigValue item = list.item(i);
        const PseudowireConfig pseudowire = readPseudowire(item, ports);
        checkUnique(item, pseudowire, pseudowires);
        pseudowires.push_back({pseudowire, item.line()});
    }
    for (std::size_t i = 0; i < pseudowires.size(); ++i) {
        const ConfigValue item = list.item(i);
        checkEgress(item, pseudowires[i].value, pseudowires);
    }
    return pseudowires;
}

} // namespace OvixAgent
