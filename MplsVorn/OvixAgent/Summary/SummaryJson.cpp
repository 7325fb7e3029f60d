#include <nlohmann/json.hpp>

#include "Summary/Summary.h"
#include "Summary/SummaryParts.h"

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

Json pseudowiresJson(const std::vector<PseudowireTraffic>& pseudowires) {
    Json list = Json::array();
    for (const PseudowireTraffic& pseudowire : pseudowires) {
        list.push_back(Json{{"name", pseudowire.name},
                            {"sent", trafficJson(pseudowire.sent)},
                            {"delivered", trafficJson(pseudowire.delivered)}});
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
    json["tables"] = {{"name", summary.tables.name},
                      {"generation", summary.tables.generation},
                      {"corruptions", summary.tables.corruptions}};
    json["problems"] = summary.problems;
    // A file name need not be UTF-8, but JSON is.
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

} // namespace OvixAgent
