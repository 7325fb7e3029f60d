#include "commands/CounterTables.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "route/TextTable.h"

namespace OvixCtl {

namespace {

using Json = nlohmann::ordered_json;
using Rows = std::vector<TextTable::Cells>;

std::string tableText(std::vector<TextTable::Column> columns, const Rows& rows) {
    if (rows.empty()) {
        return {};
    }
    TextTable table(std::move(columns));
    for (const TextTable::Cells& row : rows) {
        table.measure(row);
    }
    std::string text = table.heading();
    for (const TextTable::Cells& row : rows) {
        text += table.line(row);
    }
    return text;
}

} // namespace

Counters countersOf(const Json& answer) {
    Counters counters;
    try {
        for (const Json& entry : answer.at("labels")) {
            counters.labels.push_back({entry.at("label"), entry.at("packets"), entry.at("bytes")});
        }
        for (const Json& entry : answer.at("counters")) {
            counters.named.push_back(
                {entry.at("category"), entry.at("module"), entry.at("reason"), entry.at("count")});
        }
    } catch (const Json::exception& wrong) {
        throw std::runtime_error(
            fmt::format("the agent's answer is not counters: {}", wrong.what()));
    }
    return counters;
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
        named.push_back(
            {counter.category, counter.module, counter.reason, fmt::format("{}", counter.count)});
    }
    std::string text = tableText({{"Label", right}, {"Packets", right}, {"Bytes", right}}, labels);
    text += labels.empty() || named.empty() ? "" : "\n";
    return text +
           tableText({{"Category", left}, {"Module", left}, {"Reason", left}, {"Count", right}},
                     named);
}

Json countersJson(const Counters& counters) {
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
    return json;
}

} // namespace OvixCtl
