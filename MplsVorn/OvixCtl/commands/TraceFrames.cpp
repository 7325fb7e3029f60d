#include <chrono>
#include <cstdio>
#include <fmt/format.h>

#include "Lumo/MplsLabel.h"
#include "Summary/JsonText.h"
#include "commands/AgentAnswer.h"
#include "commands/EndSignals.h"

namespace OvixCtl {

using OvixAgent::dumped;

namespace {

Json askedFor(const Request& request) {
    Json asked{{"limit", request.limit}, {"seconds", request.seconds}};
    if (request.label <= Lumo::MplsLabel::max) {
        asked["label"] = request.label;
    }
    for (const auto& [name, value] :
         {std::pair("port", &request.port), std::pair("prefix", &request.prefix),
          std::pair("reason", &request.reason)}) {
        if (!value->empty()) {
            asked[name] = *value;
        }
    }
    return asked;
}

} // namespace

// Whoever interrupts the command wants no more of it; the agent would stop by itself, too.
Tessel::Result<int> startTrace(const Request& request) {
    constexpr std::chrono::milliseconds poll{50};
    const EndSignals signals;
    Tessel::Result<Json> answer = answerOf(request, "trace-start", askedFor(request));
    while (answer) {
        for (const Json& line : answer.value().at("lines")) {
            fmt::print("{}\n", request.json ? dumped(line) : cellOf(line));
        }
        std::fflush(stdout);
        if (answer.value().at("on") != true) {
            return ExitCode::success;
        }
        if (std::ferror(stdout) != 0 || signals.cameWithin(poll)) {
            answer = answerOf(request, "trace-stop");
            return answer ? Tessel::Result<int>(ExitCode::success) : answer.refused();
        }
        answer = answerOf(request, "trace-lines", {{"after", answer.value().at("end")}});
    }
    return answer.refused();
}

Tessel::Result<int> stopTrace(const Request& request) {
    const Tessel::Result<Json> answer = answerOf(request, "trace-stop");
    return answer ? Tessel::Result<int>(ExitCode::success) : answer.refused();
}

} // namespace OvixCtl
