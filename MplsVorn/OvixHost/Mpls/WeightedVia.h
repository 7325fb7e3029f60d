#pragma once

#include <cstdint>
#include <span>

#include "Mpls/OvixMplsVia.h"

namespace Mpls {

/// A via and its share of the flows.
struct WeightedVia {
    Ovix::OvixMplsVia via;
    std::uint32_t weight = 1;
};

/// The sum of the weights. Throws std::invalid_argument when there are more than 599 vias or when
/// their weights add up to 2^32 or more.
std::uint64_t checkedWeight(std::span<const WeightedVia> vias);

} // namespace Mpls
