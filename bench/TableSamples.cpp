#include "TableSamples.h"

#include <array>
#include <benchmark/benchmark.h>

namespace Bench {

std::vector<Mpls::WeightedRecord> swapVia(std::uint32_t outLabel, const std::string& port,
                                          const std::string& nexthop) {
    std::vector<Mpls::WeightedRecord> vias(1);
    vias[0].via.labelAction = 3;
    vias[0].via.intfId = Lumo::IntfId(port);
    vias[0].via.nexthop = Lumo::IpGenAddr::fromText(nexthop);
    const std::array<std::uint8_t, 3> label{static_cast<std::uint8_t>(outLabel >> 16U),
                                            static_cast<std::uint8_t>(outLabel >> 8U),
                                            static_cast<std::uint8_t>(outLabel)};
    vias[0].via.labelsIs(label);
    return vias;
}

void writeLfib(Mpls::LfibWriter& lfib, std::uint32_t routes, std::uint32_t outLabel) {
    const auto vias = swapVia(outLabel);
    for (std::uint32_t i = 0; i < routes; ++i) {
        lfib.routeIs(keyOf(firstLabel + i), Mpls::LfibViaType::ip, Mpls::LfibViaSetType::unicast,
                     vias);
    }
}

void readLfib(const Mpls::LfibStatus& lfib, Mpls::RouteKey key) {
    const auto set = lfib.viaSet(lfib.route(key).viaSetKey);
    const auto via = lfib.ipVia(set.members[0]);
    benchmark::DoNotOptimize(via.intfId);
}

} // namespace Bench
