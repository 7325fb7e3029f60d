#include "Metrics/MetricsText.h"

#include <iterator>
#include <prometheus/text_serializer.h>
#include <utility>
#include <vector>

#include "Control/ControlClient.h"
#include "Exposition/ProcessMetrics.h"
#include "Metrics/AgentMetrics.h"

namespace OvixAgent {

namespace {

/// None further when one is missing: the agent may be ending, and waits for this.
AgentAnswers answersAt(const std::string& control) {
    constexpr std::chrono::seconds longest{1};
    AgentAnswers all;
    for (const auto& [command, answer] :
         {std::pair("status", &all.status), std::pair("fates", &all.fates),
          std::pair("ports", &all.ports), std::pair("vrfs", &all.vrfs),
          std::pair("events", &all.events)}) {
        auto line = askAgent(control, std::string(R"({"command":")") + command + R"("})", longest);
        if (!line) {
            break;
        }
        *answer = std::move(line).value();
    }
    return all;
}

} // namespace

const std::string& MetricsText::text() {
    constexpr std::chrono::milliseconds freshFor{200};
    if (const auto now = Clock::now(); text_.empty() || now - made_ >= freshFor) {
        std::vector<prometheus::MetricFamily> families = metricsOf(answersAt(control_));
        std::vector<prometheus::MetricFamily> own = OvixHttp::metricsOfProcess();
        std::move(own.begin(), own.end(), std::back_inserter(families));
        text_ = prometheus::TextSerializer().Serialize(families);
        made_ = now;
    }
    return text_;
}

} // namespace OvixAgent
