#include "Config/ConfigMvpn.h"

#include <fmt/format.h>
#include <limits>
#include <unordered_map>

namespace OvixAgent {

namespace {

constexpr std::uint32_t anyVrfId = std::numeric_limits<std::uint32_t>::max();

MvpnConfig readEntry(const ConfigMap& map) {
    MvpnConfig entry;
    entry.vrfId = map.required("vrf-id").number<std::uint32_t>("VRF id", 0, anyVrfId);
    entry.vlan = map.optionalNumber<std::uint16_t>("vlan", 1, 4094);
    return entry;
}

} // namespace

std::vector<MvpnConfig> readMvpn(const ConfigValue& list, const PortNames& ports) {
    std::vector<MvpnConfig> entries;
    std::unordered_map<std::uint32_t, std::size_t> lines;
    for (std::size_t i = 0; i < list.listSize(); ++i) {
        const ConfigValue item = list.item(i);
        const ConfigMap map(item, {"vrf-id", "vlan", "interface"});
        MvpnConfig& entry = entries.emplace_back(readEntry(map));
        entry.line = item.line();
        const auto interface = map.find("interface");
        if (interface) {
            entry.port = ports.read(*interface);
        }
        if (entry.vlan.has_value() == interface.has_value()) {
            item.fail("one of vlan and interface is needed");
        }
        const auto [first, isNew] = lines.emplace(entry.vrfId, item.line());
        if (!isNew) {
            map.required("vrf-id").fail(
                fmt::format("VRF id {} is already defined at line {}", entry.vrfId, first->second));
        }
    }
    return entries;
}

} // namespace OvixAgent
