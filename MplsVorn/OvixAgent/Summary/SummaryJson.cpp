// The JSON of a run: its summary, and the requests and answers of the control socket.

#include <nlohmann/json.hpp>
#include <string_view>

#include "Summary/JsonText.h"
#include "Summary/Summary.h"

namespace OvixAgent {

using Json = nlohmann::ordered_json;

namespace {

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
    Json::object_t counts; // no reason is looked for: all are different
    for (const auto& [reason, count] : reasons.counts()) {
        counts.emplace_back(reason, count);
    }
    return {{"frames", reasons.total()}, {"reasons", std::move(counts)}};
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

Json labelJson(const LabelTraffic& label) {
    return {
        {"label", label.label}, {"packets", label.traffic.frames}, {"bytes", label.traffic.bytes}};
}

Json labelsJson(const std::vector<LabelTraffic>& labels) {
    Json list = Json::array();
    for (const LabelTraffic& label : labels) {
        list.push_back(labelJson(label));
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

Json tablesJson(const TablesState& tables) {
    return {{"name", tables.name},
            {"generation", tables.generation},
            {"corruptions", tables.corruptions},
            {"problem", tables.problem.empty() ? Json(nullptr) : Json(tables.problem)}};
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
    json["tables"] = tablesJson(summary.tables);
    json["problems"] = summary.problems;
    for (const std::string& closed : summary.closedPorts) {
        json["problems"].push_back(closed);
    }
    return dumped(json, 2);
}

Tessel::Result<std::string> requestedCommand(const std::string& request) {
    const Json json = Json::parse(request, nullptr, false);
    if (!json.is_object() || !json.contains("command") || !json["command"].is_string()) {
        return Tessel::Refused{"a request is an object with a command"};
    }
    return json["command"].get<std::string>();
}

std::string requestedText(const std::string& request, const char* member) {
    const Json json = Json::parse(request, nullptr, false);
    const auto found = json.find(member);
    return found != json.end() && found->is_string() ? found->get<std::string>() : std::string();
}

std::uint64_t requestedNumber(const std::string& request, const char* member) {
    const Json json = Json::parse(request, nullptr, false);
    const auto found = json.find(member);
    return found != json.end() && found->is_number_unsigned() ? found->get<std::uint64_t>() : 0;
}

std::string labelText(const LabelTraffic& label) {
    return dumped(labelJson(label));
}

std::string countersText(const std::vector<NamedCounter>& counters) {
    return dumped(countersJson(counters));
}

std::string statusAnswer(const Summary& summary, std::string_view version, std::string_view run,
                         const MoreStatus& more) {
    Json tables = tablesJson(summary.tables);
    tables["committedAt"] = more.committedAt;
    tables["entries"] = Json::object();
    for (const auto& [table, entries] : more.entries) {
        tables["entries"][std::string(table)] = entries;
    }
    return dumped(
        Json{{"ok", true},
             {"version", version},
             {"run", run},
             {"tables", std::move(tables)},
             {"frames",
              {{"in", summary.in.frames},
               {"replicas", summary.replicas},
               {"forwarded", summary.forwardedTotal().frames},
               {"punted", summary.punted.total()},
               {"dropped", summary.dropped.total()},
               {"handedOn", summary.handedOn.total()},
               {"queued", summary.waiting},
               {"answers", summary.answers}}},
             {"neighbours", {{"known", more.neighbours}, {"wanted", more.wantedNeighbours}}},
             {"balanced", summary.isBalanced()}});
}

namespace {

/// {"seconds", "in", "replicas", "forwarded", FATES}, each count as `count` makes it a number.
template <typename Count>
Json growthJson(const FateGrowth& growth, const Count& count) {
    const auto fate = [&](const Reasons& reasons) {
        Json::object_t counts;
        for (const auto& [reason, frames] : reasons.counts()) {
            counts.emplace_back(reason, count(frames));
        }
        return Json{{"frames", count(reasons.total())}, {"reasons", std::move(counts)}};
    };
    const Summary& frames = growth.frames;
    return {
        {"seconds", inTenths(growth.seconds)}, {"in", count(frames.in.frames)},
        {"replicas", count(frames.replicas)},  {"forwarded", count(frames.forwardedTotal().frames)},
        {"punted", fate(frames.punted)},       {"dropped", fate(frames.dropped)},
        {"handedOn", fate(frames.handedOn)}};
}

} // namespace

std::string fatesAnswer(const Summary& summary, const FateGrowth& sinceAsked,
                        const FateGrowth& ofLate) {
    const auto asIs = [](std::uint64_t frames) { return frames; };
    const auto perSecond = [&](std::uint64_t frames) {
        return ofLate.seconds > 0 ? inTenths(static_cast<double>(frames) / ofLate.seconds) : 0;
    };
    return dumped(Json{{"ok", true},
                       {"in", summary.in.frames},
                       {"answers", summary.answers},
                       {"replicas", summary.replicas},
                       {"forwarded", summary.forwardedTotal().frames},
                       {"punted", reasonsJson(summary.punted)},
                       {"dropped", reasonsJson(summary.dropped)},
                       {"handedOn", reasonsJson(summary.handedOn)},
                       {"queued", summary.waiting},
                       {"balanced", summary.isBalanced()},
                       {"sinceAsked", growthJson(sinceAsked, asIs)},
                       {"perSecond", growthJson(ofLate, perSecond)}});
}

std::string doneAnswer() {
    return dumped(Json{{"ok", true}});
}

std::string refusalAnswer(const std::string& error) {
    return dumped(Json{{"ok", false}, {"error", error}});
}

} // namespace OvixAgent
