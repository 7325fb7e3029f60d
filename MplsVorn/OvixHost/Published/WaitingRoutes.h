#pragma once

#include <cstdint>
#include <vector>

#include "Mpls/LabelRoute.h"
#include "Mpls/LfibLayout.h"
#include "Tables/TableReader.h"

namespace Mpls {

// The label routes that wait for those of other owners, as a reader has them (LabelRoutes writes
// them): each in a place of its own in a table that forwarding does not look at.

/// The route in a place, which waits for this. Refused, saying what is damaged.
Tessel::Result<LabelRoute> readWaitingRoute(const Ptr<const Tessel::TableReader>& tables,
                                            std::uint32_t place, LfibLayout::WaitingWord waits);

/// All of them, by label. Damaged ones are left out.
std::vector<LabelRoute> readWaitingRoutes(const Ptr<const Tessel::TableReader>& tables);

} // namespace Mpls
