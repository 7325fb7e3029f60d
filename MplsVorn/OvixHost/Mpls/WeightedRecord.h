#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "Mpls/Via.h"

namespace Mpls {

/// A via record and its share of the flows, as tables hold them: legal or not.
struct WeightedRecord {
    Ovix::OvixMplsVia via;
    std::uint32_t weight = 1;
};

/// The sum of the weights. Throws std::invalid_argument when there are more than 599 vias or when
/// their weights add up to 2^32 or more.
std::uint64_t checkedWeight(std::span<const WeightedRecord> vias);

/// The records of vias.
std::vector<WeightedRecord> recordsOf(std::span<const WeightedVia> vias);

} // namespace Mpls
