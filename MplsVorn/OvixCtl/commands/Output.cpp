#include "commands/Output.h"

#include <ctime>
#include <fmt/chrono.h>
#include <fmt/format.h>

#include "route/RoutePrinting.h"

namespace OvixCtl {

std::string timeText(std::uint64_t nanoseconds) {
    constexpr std::uint64_t perSecond = 1'000'000'000;
    constexpr std::uint64_t perMillisecond = 1'000'000;
    const auto seconds = static_cast<std::time_t>(nanoseconds / perSecond);
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(seconds),
                       nanoseconds % perSecond / perMillisecond);
}

void complain(const std::string& what) {
    fmt::print(stderr, "ovixctl: {}\n", what);
}

int usageError(const Tessel::Refused& refused) {
    complain(refused.what);
    return ExitCode::usage;
}

void printCounts(const Request& request, std::uint64_t generation, const ChangeCounts& counts) {
    if (request.json) {
        fmt::print(R"({{"tables":{},"generation":{},"added":{},"changed":{},"removed":{}}})"
                   "\n",
                   jsonText(request.tables), generation, counts.added, counts.changed,
                   counts.removed);
        return;
    }
    fmt::print("tables \"{}\": {} added, {} changed, {} removed; generation {}\n", request.tables,
               counts.added, counts.changed, counts.removed, generation);
}

} // namespace OvixCtl
