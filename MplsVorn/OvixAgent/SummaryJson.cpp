#include <nlohmann/json.hpp>

#include "Summary.h"

namespace OvixAgent {

namespace {

using Json = nlohmann::ordered_json;

Json trafficJson(const Traffic& traffic) {
    return {{"frames", traffic.frames}, {"bytes", traffic.bytes}};
}

Json forwardedJson(const Summary& summary) {
    Json forwarded = trafficJson(summary.forwardedTotal());
    forwarded["ports"] = Json::object();
    for (const PortTraffic& port : summary.forwarded) {
        forwarded["ports"][port.port] = trafficJson(port.traffic);
    }
    return forwarded;
}

Json reasonsJson(const Reasons& reasons) {
    Json counts = Json::object();
    for (const auto& [reason, count] : reasons.counts()) {
        counts[reason] = count;
    }
    return {{"frames", reasons.total()}, {"reasons", counts}};
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

Json pseudowiresJson(const std::vector<PseudowireTraffic>& pseudowires) {
    Json list = Json::array();
    for (const PseudowireTraffic& pseudowire : pseudowires) {
        list.push_back(Json{{"name", pseudowire.name},
                            {"sent", trafficJson(pseudowire.sent)},
                            {"delivered", trafficJson(pseudowire.delivered)}});
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

} // namespace

std::string summaryJson(const Summary& summary) {
    Json json;
    json["balanced"] = summary.isBalanced();
    json["in"] = trafficJson(summary.in);
    json["forwarded"] = forwardedJson(summary);
    json["punted"] = reasonsJson(summary.punted);
    json["dropped"] = reasonsJson(summary.dropped);
    json["handedOn"] = reasonsJson(summary.handedOn);
    json["replicas"] = summary.replicas;
    json["exceptions"] = trafficJson(summary.exceptions);
    json["labels"] = labelsJson(summary.labels);
    json["pseudowires"] = pseudowiresJson(summary.pseudowires);
    json["counters"] = countersJson(summary.counters);
    json["problems"] = summary.problems;
    // A file name need not be UTF-8, but JSON is.
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

} // namespace OvixAgent
