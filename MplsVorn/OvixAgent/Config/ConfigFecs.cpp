#include "Config/ConfigFecs.h"

#include <fmt/format.h>
#include <limits>
#include <unordered_map>

#include "Config/ConfigAddress.h"
#include "Config/ConfigVias.h"

namespace OvixAgent {

namespace {

FecViaConfig readVia(const ConfigValue& value, const PortNames& ports) {
    const ConfigMap map(value, {"interface", "nexthop", "weight"});
    FecViaConfig via;
    via.port = ports.read(map.required("interface"));
    via.nexthop = readIpAddress(map.required("nexthop"));
    via.weight = map.numberOr<std::uint32_t>("weight", 0, std::numeric_limits<std::uint32_t>::max(),
                                             via.weight);
    return via;
}

std::vector<FecViaConfig> readVias(const ConfigValue& list, const PortNames& ports) {
    std::vector<FecViaConfig> vias;
    std::uint64_t totalWeight = 0;
    for (std::size_t i = 0; i < list.listSize(); ++i) {
        vias.push_back(readVia(list.item(i), ports));
        totalWeight += vias.back().weight;
    }
    if (vias.empty()) {
        list.fail("at least one via is needed");
    }
    checkWeights(list, totalWeight);
    return vias;
}

} // namespace

std::vector<FecConfig> readFecs(const ConfigValue& list, const PortNames& ports) {
    std::vector<FecConfig> fecs;
    std::unordered_map<std::uint64_t, std::size_t> lines;
    for (std::size_t i = 0; i < list.listSize(); ++i) {
        const ConfigValue item = list.item(i);
        const ConfigMap map(item, {"id", "vias"});
        FecConfig& fec = fecs.emplace_back();
        const ConfigValue id = map.required("id");
        fec.id = id.number<std::uint64_t>("FEC id", 1, maxFecId);
        const auto [first, isNew] = lines.emplace(fec.id, id.line());
        if (!isNew) {
            id.fail(fmt::format("FEC {} is already defined at line {}", fec.id, first->second));
        }
        fec.vias = readVias(map.required("vias"), ports);
    }
    return fecs;
}

} // namespace OvixAgent
