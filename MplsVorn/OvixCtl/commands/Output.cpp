#include "commands/Output.h"

#include <chrono>
#include <ctime>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace OvixCtl {

std::string timeText(std::uint64_t nanoseconds) {
    constexpr std::uint64_t perSecond = 1'000'000'000;
    constexpr std::uint64_t perMillisecond = 1'000'000;
    const auto seconds = static_cast<std::time_t>(nanoseconds / perSecond);
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(seconds),
                       nanoseconds % perSecond / perMillisecond);
}

std::string jsonText(const nlohmann::ordered_json& json) {
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void complain(const std::string& what) {
    fmt::print(stderr, "ovixctl: {}\n", what);
}

void printCounts(const CtlOptions& options, std::uint64_t generation, const ChangeCounts& counts) {
    if (options.json) {
        fmt::print("{}\n", jsonText({{"tables", options.tables},
                                     {"generation", generation},
                                     {"added", counts.added},
                                     {"changed", counts.changed},
                                     {"removed", counts.removed}}));
        return;
    }
    fmt::print("tables \"{}\": {} added, {} changed, {} removed; generation {}\n", options.tables,
               counts.added, counts.changed, counts.removed, generation);
}

} // namespace OvixCtl
