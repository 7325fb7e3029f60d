#include "commands/Counters.h"

#include <fmt/format.h>
#include <optional>

#include "Ovix/trace/NamedCounters.h"
#include "Summary/JsonText.h"
#include "commands/AgentAnswer.h"
#include "route/RouteWords.h"

namespace OvixCtl {

using OvixAgent::dumped;

Tessel::Result<Counters> readCounters(const std::string& path) {
    const Tessel::Result<Json> answer = answerTo("counters", path);
    if (!answer) {
        return answer.refused();
    }
    try {
        Counters counters;
        for (const Json& entry : answer.value().at("labels")) {
            counters.labels.push_back({entry.at("label"), entry.at("packets"), entry.at("bytes")});
        }
        for (const Json& entry : answer.value().at("counters")) {
            counters.named.push_back(
                {entry.at("category"), entry.at("module"), entry.at("reason"), entry.at("count")});
        }
        return counters;
    } catch (const Json::exception& wrong) {
        return Tessel::Refused{fmt::format(
            "control socket {}: the agent's answer is not counters: {}", path, wrong.what())};
    }
}

Counters countersOfLabel(const Counters& counters, std::uint32_t label) {
    Counters one;
    for (const LabelCounter& counter : counters.labels) {
        if (counter.label == label) {
            one.labels.push_back(counter);
        }
    }
    return one;
}

std::string countersText(const Counters& counters) {
    using enum TextTable::Align;
    Rows labels;
    for (const LabelCounter& counter : counters.labels) {
        labels.push_back({fmt::format("{}", counter.label), fmt::format("{}", counter.packets),
                          fmt::format("{}", counter.bytes)});
    }
    Rows named;
    for (const NamedCounter& counter : counters.named) {
        const Ovix::EventText event = Ovix::readableEvent(counter.category, counter.reason);
        named.push_back(
            {event.category, counter.module, event.reason, fmt::format("{}", counter.count)});
    }
    std::string text = tableText({{"Label", right}, {"Packets", right}, {"Bytes", right}}, labels);
    text += labels.empty() || named.empty() ? "" : "\n";
    return text +
           tableText({{"Category", left}, {"Module", left}, {"Reason", left}, {"Count", right}},
                     named);
}

std::string countersJson(const Counters& counters) {
    Json json{{"labels", Json::array()}, {"counters", Json::array()}};
    for (const LabelCounter& counter : counters.labels) {
        json["labels"].push_back(
            Json{{"label", counter.label}, {"packets", counter.packets}, {"bytes", counter.bytes}});
    }
    for (const NamedCounter& counter : counters.named) {
        json["counters"].push_back(Json{{"category", counter.category},
                                        {"module", counter.module},
                                        {"reason", counter.reason},
                                        {"count", counter.count}});
    }
    return dumped(json);
}

Tessel::Result<int> showCounters(const Request& request) {
    std::optional<std::uint32_t> label;
    if (!request.words.empty()) {
        const auto read = readWords([&] { return parseLabel(request.words.front()).value(); });
        if (!read) {
            return usageError(request, read.refused());
        }
        label = read.value();
    }
    const Tessel::Result<Counters> all = readCounters(controlPathFor(request));
    if (!all) {
        return all.refused();
    }
    const Counters counters = label ? countersOfLabel(all.value(), *label) : all.value();
    if (label && counters.labels.empty()) {
        return Tessel::Refused{fmt::format("nothing has been counted for label {}", *label)};
    }
    fmt::print("{}", request.json ? countersJson(counters) + "\n" : countersText(counters));
    return ExitCode::success;
}

Tessel::Result<int> clearCounters(const Request& request) {
    const Tessel::Result<Json> answer = answerTo("clear-counters", controlPathFor(request));
    if (!answer) {
        return answer.refused();
    }
    fmt::print("{}", request.json ? "{\"ok\":true}\n" : "");
    return ExitCode::success;
}

} // namespace OvixCtl
