#pragma once

#include <prometheus/metric_family.h>
#include <string>
#include <vector>

namespace OvixAgent {

/// What an agent answers at its control socket to the commands of these names, each a line of JSON;
/// empty when it has not answered.
struct AgentAnswers {
    std::string status;
    std::string fates;
    std::string ports;
    std::string vrfs;
    std::string events;
};

/// `ovix_up`, and all the answers say; nothing else when one of them is missing or not understood.
std::vector<prometheus::MetricFamily> metricsOf(const AgentAnswers& answers);

} // namespace OvixAgent
