#include <nlohmann/json.hpp>

#include "Explain/Explanation.h"
#include "Explain/FrameWords.h"

namespace OvixAgent {

namespace {

using Json = nlohmann::ordered_json;

Json textOrNull(const std::string& text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

Json sentJson(const Walk& walk) {
    Json all = Json::array();
    for (const Walk::Sent& sent : walk.sent) {
        all.push_back(Json{
            {"port", sent.port}, {"length", sent.originalLength}, {"bytes", hexText(sent.bytes)}});
    }
    return all;
}

Json walkJson(const Walk& walk) {
    return {{"fate", std::string(Tessel::wordOf(walk.kind))},
            {"reason", textOrNull(walk.reason)},
            {"sent", sentJson(walk)}};
}

Json stepJson(const Explanation::Step& step) {
    Json values = Json::object();
    for (const Ovix::RoadNote::Field& field : step.note.fields) {
        values[std::string(field.name)] =
            field.isNumber ? Json(std::stoull(field.value)) : Json(field.value);
    }
    return {{"step", step.kind},
            {"text", step.text},
            {"details", step.details},
            {"values", std::move(values)},
            {"failed", step.isFailure}};
}

Json changeJson(const NearestChange& change) {
    return {
        {"commands", change.commands}, {"notes", change.notes}, {"then", walkJson(change.after)}};
}

} // namespace

std::string explanationJson(const Explanation& told) {
    Json steps = Json::array();
    for (const Explanation::Step& step : told.steps) {
        steps.push_back(stepJson(step));
    }
    const Json all{{"frame",
                    {{"port", told.port},
                     {"length", told.frame.originalLength},
                     {"bytes", hexText(told.frame.bytes)},
                     {"headers", told.headers}}},
                   {"tables", textOrNull(told.tables)},
                   {"generation", told.generation},
                   {"steps", std::move(steps)},
                   {"verdict", walkJson(told.walk)},
                   {"fastPath", std::string(Tessel::wordOf(told.fastRoad))},
                   {"change", told.change ? changeJson(*told.change) : Json(nullptr)},
                   {"remarks", told.remarks},
                   {"trace", told.walk.trace}};
    return all.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace OvixAgent
