#include "Summary/SummaryParts.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace OvixAgent {

using Json = nlohmann::ordered_json;

std::vector<LabelTraffic> labelTraffic(const Counter::PktCounterCollectionHolder& holder) {
    std::vector<LabelTraffic> labels;
    for (const auto& collection : holder.collections()) {
        collection->forEach([&](Mpls::RouteKey key, const Counter::PktCounter& counter) {
            labels.push_back({key.topLabel().value(), {counter.packets(), counter.bytes()}});
        });
    }
    std::sort(labels.begin(), labels.end(),
              [](const auto& a, const auto& b) { return a.label < b.label; });
    return labels;
}

std::vector<NamedCounter> namedCounters(const Ovix::OvixNamedCounters& counters) {
    std::vector<NamedCounter> named;
    for (const auto& counter : counters.counters()) {
        named.push_back({counter.category, counter.module, counter.reason, counter.count});
    }
    return named;
}

Json labelsJson(const std::vector<LabelTraffic>& labels) {
    Json list = Json::array();
    for (const LabelTraffic& label : labels) {
        list.push_back(Json{{"label", label.label},
                            {"packets", label.traffic.frames},
                            {"bytes", label.traffic.bytes}});
    }
    return list;
}

Json countersJson(const std::vector<NamedCounter>& counters) {
    Json list = Json::array();
    for (const NamedCounter& counter : counters) {
        list.push_back(Json{{"category", counter.category},
                            {"module", counter.module},
                            {"reason", counter.reason},
                            {"count", counter.count}});
    }
    return list;
}

} // namespace OvixAgent
