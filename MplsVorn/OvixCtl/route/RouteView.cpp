#include "route/RouteView.h"

#include <algorithm>

namespace OvixCtl {

namespace {

bool areEqual(const std::vector<Mpls::WeightedRecord>& a,
              const std::vector<Mpls::WeightedRecord>& b) noexcept {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const Mpls::WeightedRecord& one, const Mpls::WeightedRecord& other) {
                          return one.weight == other.weight && one.via.isEq(other.via);
                      });
}

} // namespace

bool operator==(const LfibRouteView& a, const LfibRouteView& b) noexcept {
    return a.type == b.type && a.setType == b.setType && a.origin == b.origin &&
           a.flags == b.flags && a.lookup == b.lookup && a.tail == b.tail &&
           areEqual(a.vias, b.vias);
}

bool operator==(const AdjacencyView& a, const AdjacencyView& b) noexcept {
    return a.type == b.type && a.setType == b.setType && a.useBackups == b.useBackups &&
           areEqual(a.vias, b.vias) && areEqual(a.backups, b.backups);
}

} // namespace OvixCtl
