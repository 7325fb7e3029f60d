#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fmt/chrono.h>
#include <fmt/format.h>

#include "commands/Command.h"
#include "route/RouteJson.h"
#include "tables/TableView.h"

namespace OvixCtl {

Tessel::Result<void> requireTables(const Request& request) {
    return request.create ? Tessel::Result<void>() : checkTablesExist(request.tables);
}

Tessel::TableMemory openForBatch(const Request& request) {
    return Tessel::TableMemory::sharedForWriting(request.tables, Tessel::TableMemory::defaultBytes,
                                                 std::chrono::seconds(request.wait));
}

std::string timeText(std::uint64_t nanoseconds) {
    constexpr std::uint64_t perSecond = 1'000'000'000;
    constexpr std::uint64_t perMillisecond = 1'000'000;
    const auto seconds = static_cast<std::time_t>(nanoseconds / perSecond);
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(seconds),
                       nanoseconds % perSecond / perMillisecond);
}

std::string errorText(bool json, const std::string& what) {
    return json ? fmt::format("{{\"error\":{}}}\n", jsonText(what))
                : fmt::format("ovixctl: {}\n", what);
}

void complain(const Request& request, const std::string& what) {
    std::fputs(errorText(request.json, what).c_str(), stderr);
}

void note(const Request& request, const std::string& what) {
    fmt::print(stderr, "{}\n",
               request.json ? fmt::format("{{\"notice\":{}}}", jsonText(what))
                            : "ovixctl: " + what);
}

int usageError(const Request& request, const Tessel::Refused& refused) {
    complain(request, refused.what);
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
