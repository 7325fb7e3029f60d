#include "Metrics/MetricsText.h"

#include <fmt/format.h>
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
AgentAnswers answersAt(const std::string& control, std::size_t labels) {
    constexpr std::chrono::seconds longest{1};
    AgentAnswers all;
    std::vector<std::pair<const char*, std::string*>> wanted{{"status", &all.status},
                                                             {"fates", &all.fates},
                                                             {"ports", &all.ports},
                                                             {"vrfs", &all.vrfs},
                                                             {"events", &all.events}};
    if (labels > 0) {
        wanted.emplace_back("top-labels", &all.topLabels);
    }
    for (const auto& [command, answer] : wanted) {
        auto line = askAgent(
            control, fmt::format(R"({{"command":"{}","limit":{}}})", command, labels), longest);
        if (!line) {
            break;
        }
        *answer = std::move(line).value();
    }
    return all;
}

} // namespace

MetricsText::MetricsText(std::string control, const std::string& tables, std::size_t labels)
    : control_(std::move(control)), labels_(labels), census_(tables) {}

const std::string& MetricsText::text() {
    constexpr std::chrono::milliseconds freshFor{200};
    if (const auto now = Clock::now(); text_.empty() || now - made_ >= freshFor) {
        AgentAnswers answers = answersAt(control_, labels_);
        answers.owned = census_.counts();
        std::vector<prometheus::MetricFamily> families = metricsOf(answers);
        std::vector<prometheus::MetricFamily> own = OvixHttp::metricsOfProcess();
        std::move(own.begin(), own.end(), std::back_inserter(families));
        text_ = prometheus::TextSerializer().Serialize(families);
        made_ = now;
    }
    return text_;
}

} // namespace OvixAgent
