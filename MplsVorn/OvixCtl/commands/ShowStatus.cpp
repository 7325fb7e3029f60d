#include <fmt/format.h>

#include "Ovix/trace/NamedCounters.h"
#include "commands/AgentAnswer.h"

namespace OvixCtl {

namespace {

std::string tablesText(const Json& tables) {
    const std::string name = cellOf(tables.at("name"));
    std::string text = name.empty() ? "of the configuration" : fmt::format("\"{}\"", name);
    text += ", generation " + cellOf(tables.at("generation"));
    if (const Json& damage = tables.at("corruptions"); damage != 0) {
        text += fmt::format(", damage met {} times", cellOf(damage));
    }
    const std::string problem = cellOf(tables.at("problem"));
    return text + (problem.empty() ? "" : "; " + problem);
}

std::string statusText(const Json& status) {
    const Json& frames = status.at("frames");
    std::string text =
        fmt::format("{:<12}{}\n{:<12}{}\n{:<12}{}\n", "version", cellOf(status.at("version")),
                    "run", cellOf(status.at("run")), "tables", tablesText(status.at("tables")));
    for (const auto& [name, count] : frames.items()) {
        text += fmt::format("{:<12}{}\n", name == "handedOn" ? "handed on" : name, cellOf(count));
        const Json ofFate = status.at("reasons").value(name, Json::object());
        for (const auto& [reason, of] : ofFate.items()) {
            text += fmt::format("  {}: {}\n", Ovix::readableEvent({}, reason).reason, cellOf(of));
        }
    }
    if (const Json& missed = status.at("missed"); missed != 0) {
        text += fmt::format("{:<12}{}, which came while rings were full: see port show\n", "missed",
                            cellOf(missed));
    }
    return text + (status.at("balanced") == true ? "" : "the frames do not add up\n");
}

/// Frames that no port took in; 0 when the agent does not say.
std::uint64_t missedFrames(const Request& request) {
    const Tessel::Result<Json> ports = listOf(request, "ports");
    std::uint64_t missed = 0;
    for (const Json& port : ports ? ports.value().at("ports") : Json::array()) {
        const Json& ring = port.at("ring");
        missed += ring.is_null() ? 0 : ring.at("drops").get<std::uint64_t>();
    }
    return missed;
}

/// Counts and their reasons of one moment, so that they add up. Of an agent that does not say them
/// the counts stay, without reasons.
void takeReasons(const Request& request, Json& status) {
    status["reasons"] = Json::object();
    const Tessel::Result<Json> fates = answerOf(request, "fates");
    for (auto& [name, count] : status["frames"].items()) {
        const Json now = fates ? fates.value().value(name, Json()) : Json();
        if (now.is_object()) {
            count = now.value("frames", Json());
            status["reasons"][name] = now.value("reasons", Json::object());
        } else if (now.is_number()) {
            count = now;
        }
    }
}

/// What a health check asks for: that the agent answers, and finds nothing wrong.
Tessel::Result<int> healthOf(const Json& status) {
    if (status.at("balanced") != true) {
        return Tessel::Refused{"the frames do not add up"};
    }
    const Json& tables = status.at("tables");
    if (tables.at("corruptions") != 0 || !cellOf(tables.at("problem")).empty()) {
        return Tessel::Refused{"tables " + tablesText(tables)};
    }
    return ExitCode::success;
}

} // namespace

Tessel::Result<int> showStatus(const Request& request) {
    Tessel::Result<Json> status = answerOf(request, "status");
    if (!status) {
        return status.refused();
    }
    if (request.quiet) {
        return healthOf(status.value());
    }
    takeReasons(request, status.value());
    status.value()["missed"] = missedFrames(request);
    fmt::print("{}", request.json ? status.value().dump() + "\n" : statusText(status.value()));
    return ExitCode::success;
}

} // namespace OvixCtl
