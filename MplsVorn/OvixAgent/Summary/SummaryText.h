#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "Summary/Summary.h"

namespace OvixAgent {

/// A table for people; empty parts are left out.
std::string summaryTable(const Summary& summary);

/// The same as indented JSON without a trailing newline:
/// {"balanced", "in": {"frames", "bytes"},
///  "forwarded": {"frames", "bytes", "ports": {PORT: {"frames", "bytes"}}},
///  "punted", "dropped", "handedOn": {"frames", "reasons": {REASON: COUNT}},
///  "replicas", "exceptions": {"frames", "bytes"}, "labels": [{"label", "packets", "bytes"}],
///  "pseudowires": [{"name", "sent", "delivered": {"frames", "bytes"}}],
///  "counters": [{"category", "module", "reason", "count"}],
///  "tables": {"name", "generation", "corruptions"}, "problems": [TEXT]}.
/// Every key is always present.
std::string summaryJson(const Summary& summary);

/// The parts "labels" and "counters" of it.
nlohmann::ordered_json labelsJson(const std::vector<LabelTraffic>& labels);
nlohmann::ordered_json countersJson(const std::vector<NamedCounter>& counters);

} // namespace OvixAgent
