#pragma once

#include <nlohmann/json_fwd.hpp>
#include <vector>

#include "Ovix/trace/NamedCounters.h"
#include "State/PktCounterCollectionHolder.h"
#include "Summary/Summary.h"

namespace OvixAgent {

/// What has been counted per label, by label.
std::vector<LabelTraffic> labelTraffic(const Counter::PktCounterCollectionHolder& holder);
std::vector<NamedCounter> namedCounters(const Ovix::OvixNamedCounters& counters);

nlohmann::ordered_json labelsJson(const std::vector<LabelTraffic>& labels);
nlohmann::ordered_json countersJson(const std::vector<NamedCounter>& counters);

} // namespace OvixAgent
