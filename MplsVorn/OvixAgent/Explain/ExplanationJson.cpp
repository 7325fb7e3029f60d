#include <charconv>
#include <nlohmann/json.hpp>

#include "Explain/Explanation.h"
#include "Explain/FrameWords.h"
#include "Summary/JsonText.h"

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
    return {{"fate", std::string(walk.fateWord())},
            {"reason", textOrNull(walk.reason)},
            {"sent", sentJson(walk)}};
}

/// Of "3:1".
Json numbersJson(std::string_view text) {
    Json all = Json::array();
    while (!text.empty()) {
        std::uint64_t number = 0;
        const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
        all.push_back(number);
        text.remove_prefix(static_cast<std::size_t>(read.ptr - text.data()));
        text.remove_prefix(text.empty() ? 0 : 1);
    }
    return all;
}

/// A value that is yes or no, and of a table what else it may be, is a truth value; "state" then
/// says what else.
void addValue(Json& values, const Ovix::RoadNote::Field& field) {
    const std::string name(field.name);
    const bool isTruth = name == "found" || name == "expected" || name == "up";
    if (isTruth) {
        values[name] = field.value != "no";
        if (field.value != "no" && field.value != "yes") {
            values["state"] = field.value;
        }
    } else if (name == "weights") {
        values[name] = numbersJson(field.value);
    } else {
        const bool isNumber = field.isNumber || (name == "label" && !field.value.empty());
        values[name] = isNumber ? Json(std::stoull(field.value)) : Json(field.value);
    }
}

Json stepJson(const Explanation::Step& step) {
    Json values = Json::object();
    for (const Ovix::RoadNote::Field& field : step.note.fields) {
        addValue(values, field);
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

std::string explanationJson(const Explanation& explanation) {
    Json steps = Json::array();
    for (const Explanation::Step& step : explanation.steps) {
        steps.push_back(stepJson(step));
    }
    const Json all{{"frame",
                    {{"port", explanation.port},
                     {"length", explanation.frame.originalLength},
                     {"bytes", hexText(explanation.frame.bytes)},
                     {"headers", explanation.headers}}},
                   {"tables", textOrNull(explanation.tables)},
                   {"generation", explanation.generation},
                   {"steps", std::move(steps)},
                   {"verdict", walkJson(explanation.walk)},
                   {"fastPath", std::string(Tessel::wordOf(explanation.fastRoad))},
                   {"change", explanation.change ? changeJson(*explanation.change) : Json(nullptr)},
                   {"remarks", explanation.remarks},
                   {"trace", explanation.walk.trace}};
    return dumped(all, 2) + "\n";
}

} // namespace OvixAgent
