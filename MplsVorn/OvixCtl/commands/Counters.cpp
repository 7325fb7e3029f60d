#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

#include "Control/ControlPath.h"
#include "commands/Commands.h"
#include "commands/ControlClient.h"
#include "commands/CounterTables.h"
#include "commands/Output.h"
#include "route/RouteWords.h"

namespace OvixCtl {

namespace {

std::string pathFor(const CtlOptions& options) {
    return options.control.empty() ? OvixAgent::controlPath(options.tables) : options.control;
}

} // namespace

int showCounters(const CtlOptions& options) {
    std::optional<std::uint32_t> label;
    if (!options.words.empty()) {
        label = parseLabel(options.words.front());
    }
    const std::string path = pathFor(options);
    Counters counters = countersOf(askAgent(path, "counters"));
    if (label) {
        counters = countersOfLabel(counters, *label);
    }
    if (label && counters.labels.empty()) {
        throw std::runtime_error(fmt::format("nothing has been counted for label {}", *label));
    }
    fmt::print("{}",
               options.json ? jsonText(countersJson(counters)) + "\n" : countersText(counters));
    return ExitCode::success;
}

int clearCounters(const CtlOptions& options) {
    askAgent(pathFor(options), "clear-counters");
    if (options.json) {
        fmt::print("{}\n", jsonText({{"ok", true}}));
    }
    return ExitCode::success;
}

} // namespace OvixCtl
