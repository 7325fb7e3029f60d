#pragma once

#include <cstdint>
#include <prometheus/metric_family.h>
#include <string>
#include <vector>

namespace OvixAgent {

/// How many label routes of a table somebody has published.
struct OwnedRoutes {
    std::string table;
    std::string owner;
    std::uint64_t routes = 0;
};

/// What an agent answers at its control socket to the commands of these names, each a line of JSON;
/// empty when it has not answered.
struct AgentAnswers {
    std::string status;
    std::string fates;
    std::string ports;
    std::string vrfs;
    std::string events;
    std::string topLabels;          ///< only if labels are asked for
    std::vector<OwnedRoutes> owned; ///< of shared tables; not of the agent's answer
};

/// `ovix_up`, and all the answers say; nothing else when one of them is missing or not understood.
std::vector<prometheus::MetricFamily> metricsOf(const AgentAnswers& answers);

} // namespace OvixAgent
