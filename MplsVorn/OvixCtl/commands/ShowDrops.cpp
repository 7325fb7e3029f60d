#include <algorithm>
#include <array>
#include <chrono>
#include <fmt/format.h>
#include <optional>

#include "Ovix/trace/NamedCounters.h"
#include "State/Fate.h"
#include "Summary/JsonText.h"
#include "commands/AgentAnswer.h"
#include "commands/EndSignals.h"
#include "commands/LabelState.h"
#include "commands/RecordedFrames.h"

namespace OvixCtl {

using OvixAgent::dumped;

namespace {

using enum TextTable::Align;

/// Of a list or of one of its members: the agent's answer need not have it.
const Json& memberOf(const Json& json, const std::string& name) {
    static const Json none;
    const auto found = json.find(name);
    return json.is_object() && found != json.end() ? *found : none;
}

bool isReasonWanted(const Request& request, const std::string& reason) {
    return Ovix::readableEvent({}, reason).reason.find(request.reason) != std::string::npos;
}

/// The fate of all, and below it its reasons, as in the balance of a run; of certain reasons alone
/// where those are asked for.
void addFate(const Request& request, Rows& rows, const char* name, const std::string& key,
             const Json& fates) {
    const auto row = [&](const std::string& text, const auto& countIn) {
        rows.push_back({text, cellOf(countIn(fates)),
                        cellOf(countIn(memberOf(fates, "sinceAsked"))),
                        cellOf(countIn(memberOf(fates, "perSecond")))});
    };
    if (request.reason.empty()) {
        row(name, [&](const Json& from) {
            const Json& fate = memberOf(from, key);
            return fate.is_object() ? memberOf(fate, "frames") : fate;
        });
    }
    for (const auto& reason : memberOf(memberOf(fates, key), "reasons").items()) {
        if (!isReasonWanted(request, reason.key())) {
            continue;
        }
        row((request.reason.empty() ? "  " : name + std::string(": ")) +
                Ovix::readableEvent({}, reason.key()).reason,
            [&](const Json& from) {
                return memberOf(memberOf(memberOf(from, key), "reasons"), reason.key());
            });
    }
}

/// Leaves out the reasons that are not asked for; totals stay.
void selectReasons(const Request& request, Json& fates) {
    for (auto& [name, value] : fates.items()) {
        if (name != "reasons" && value.is_object()) {
            selectReasons(request, value);
        } else if (name == "reasons") {
            Json wanted = Json::object();
            for (const auto& [reason, count] : value.items()) {
                if (isReasonWanted(request, reason)) {
                    wanted[reason] = count;
                }
            }
            value = std::move(wanted);
        }
    }
}

Tessel::Result<int> showFates(const Request& request) {
    Tessel::Result<Json> answer = answerOf(request, "fates", {{"growth", 1}});
    if (!answer) {
        return answer.refused();
    }
    selectReasons(request, answer.value());
    Rows rows;
    for (const auto& [key, name] :
         {std::pair("in", "in"), std::pair("answers", "  answers of its own"),
          std::pair("replicas", "replicas"), std::pair("forwarded", "forwarded"),
          std::pair("punted", "punted"), std::pair("dropped", "dropped"),
          std::pair("handedOn", "handed on"), std::pair("queued", "queued")}) {
        addFate(request, rows, name, key, answer.value());
    }
    return printAnswer(
        request, answer.value(),
        {{"fate", left}, {"frames", right}, {"since asked", right}, {"a second", right}}, rows);
}

/// Whether a frame, or a line of a list, is one of those asked for.
bool isWanted(const Request& request, const Json& entry) {
    const Json& port = memberOf(entry, "port");
    const Json& reason = memberOf(entry, "reason");
    return (request.port.empty() || port == request.port) &&
           (reason.is_null() || isReasonWanted(request, cellOf(reason)));
}

/// What the tables have now for labels that led nowhere: "now", null for others, and, with a note,
/// where nobody knows.
void addStates(const Request& request, Json& entries) {
    const auto isLost = [](const Json& entry) {
        return memberOf(entry, "reason") == OvixAgent::Reason::nothingResolved;
    };
    const bool isWanted = std::any_of(entries.begin(), entries.end(), isLost);
    const std::optional<Tessel::Result<LabelState>> states =
        isWanted ? std::optional(LabelState::of(request)) : std::nullopt;
    if (states && !*states) {
        note(request, "what the tables have by now is left out: " + states->refused().what);
    }
    for (Json& entry : entries) {
        const std::string now = states && *states && isLost(entry)
                                    ? states->value().text(entry.at("label").get<std::uint32_t>())
                                    : "";
        entry["now"] = now.empty() ? Json(nullptr) : Json(now);
    }
}

using Columns = std::vector<std::pair<std::string, TextTable::Column>>;

/// Members of the entries and the columns that they make.
Columns columnsBy(const std::string& key) {
    const std::pair<std::string, TextTable::Column> frames{"frames", {"frames", right}};
    const std::pair<std::string, TextTable::Column> rate{"perSecond", {"a second", right}};
    const std::pair<std::string, TextTable::Column> port{"port", {"port", left}};
    const std::pair<std::string, TextTable::Column> fate{"fate", {"fate", left}};
    const std::pair<std::string, TextTable::Column> reason{"reason", {"reason", left}};
    return key == "port"    ? Columns{port, frames, fate, reason}
           : key == "label" ? Columns{{"label", {"label", right}}, frames, rate, fate, reason,
                                      {"now", {"now", left}}}
                            : Columns{{"nexthop", {"neighbour", left}}, port, frames, rate};
}

Tessel::Result<int> showFatesBy(const Request& request, const std::string& by) {
    constexpr std::array<std::string_view, 3> known{"port", "label", "neighbour"};
    if (std::find(known.begin(), known.end(), by) == known.end()) {
        return usageError(request, {fmt::format("--by {}: it is port, label or neighbour", by)});
    }
    const std::string list = "drops-by-" + by;
    Tessel::Result<Json> answer = listOf(request, list);
    if (!answer) {
        return answer.refused();
    }
    const Columns columns = columnsBy(by);
    std::vector<TextTable::Column> headings;
    for (const auto& column : columns) {
        headings.push_back(column.second);
    }
    if (by == "label") {
        addStates(request, answer.value()[list]);
    }
    Json wanted = Json::array();
    Rows rows;
    for (const Json& entry : answer.value()[list]) {
        if (isWanted(request, entry)) {
            wanted.push_back(entry);
            TextTable::Cells& cells = rows.emplace_back();
            for (const auto& column : columns) {
                const std::string cell = cellOf(memberOf(entry, column.first));
                const std::string_view name = column.first;
                cells.push_back(name == "reason" ? Ovix::readableEvent({}, cell).reason
                                : name == "port" && cell.empty() ? "(own)"
                                                                 : cell);
            }
        }
    }
    answer.value()[list] = std::move(wanted);
    return printAnswer(request, answer.value(), headings, rows);
}

void print(const Request& request, const Json& frame, std::optional<RecordedCapture>& capture) {
    if (capture) {
        capture->add(frame);
    } else if (request.json) {
        fmt::print("{}\n", dumped(frame));
    } else {
        fmt::print("{}\n  {}\n", recordedText(frame), cellOf(frame.at("bytes")));
    }
}

/// The frames that are kept and those that come, by the order in which they were recorded.
Tessel::Result<int> showFrames(const Request& request) {
    constexpr std::chrono::milliseconds poll{100};
    const EndSignals signals;
    std::optional<RecordedCapture> capture;
    if (!request.pcapng.empty()) {
        capture.emplace(request.pcapng);
    }
    std::uint64_t after = 0;
    do {
        Tessel::Result<Json> answer = answerOf(request, "recorded-frames", {{"after", after}});
        if (!answer) {
            return answer.refused();
        }
        Json& frames = answer.value().at("recorded-frames");
        std::sort(frames.begin(), frames.end(), [](const Json& a, const Json& b) {
            return a.at("sequence").get<std::uint64_t>() < b.at("sequence").get<std::uint64_t>();
        });
        for (const Json& frame : frames) {
            if (isWanted(request, frame)) {
                print(request, frame, capture);
            }
        }
        const auto newest = answer.value().at("sequence").get<std::uint64_t>();
        if (after > 0 && newest > after + frames.size()) {
            note(request,
                 fmt::format("{} frames came too fast to be kept", newest - after - frames.size()));
        }
        after = newest; // less than before when the agent has started again
        if (capture) {
            capture->flush();
        }
        if (!request.follow && !request.json && !capture) {
            fmt::print("# memory: {} of at most {} bytes\n", cellOf(answer.value().at("memory")),
                       cellOf(answer.value().at("memoryLimit")));
        }
        std::fflush(stdout);
    } while (request.follow && std::ferror(stdout) == 0 && !signals.cameWithin(poll));
    return ExitCode::success;
}

/// Refuses a port that the agent does not have.
Tessel::Result<void> checkPort(const Request& request) {
    if (request.port.empty()) {
        return {};
    }
    const Tessel::Result<Json> ports = listOf(request, "ports");
    if (!ports) {
        return ports.refused();
    }
    for (const Json& port : ports.value().at("ports")) {
        if (memberOf(port, "name") == request.port) {
            return {};
        }
    }
    return Tessel::Refused{fmt::format("--port: there is no port \"{}\"", request.port)};
}

} // namespace

Tessel::Result<int> showDrops(const Request& request) {
    const bool showsFrames = request.showsFrames || request.follow || !request.pcapng.empty();
    if (showsFrames && !request.by.empty()) {
        return usageError(request, {"--by counts frames, and --frames, --follow and --pcapng are "
                                    "for frames themselves: give one of them"});
    }
    if (!request.reason.empty() && request.by == "neighbour") {
        return usageError(request, {"--by neighbour has no reasons: leave --reason out"});
    }
    if (!request.port.empty() && request.by == "label") {
        return usageError(request, {"--by label has the frames of all ports: leave --port out, or "
                                    "look at the frames of the port by --frames"});
    }
    if (const auto checked = checkPort(request); !checked) {
        return checked.refused();
    }
    if (showsFrames) {
        return showFrames(request);
    }
    const std::string by = request.by.empty() && !request.port.empty() ? "port" : request.by;
    return by.empty() ? showFates(request) : showFatesBy(request, by);
}

} // namespace OvixCtl
