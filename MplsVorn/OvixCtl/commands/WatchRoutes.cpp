#include <cassert>
#include <chrono>
#include <fmt/format.h>

#include "Tessel/Exceptions.h"
#include "commands/Command.h"
#include "commands/EndSignals.h"
#include "route/RouteJson.h"
#include "tables/TableWatch.h"

namespace OvixCtl {

namespace {

constexpr std::chrono::milliseconds poll{20};

struct KindText {
    char sign;
    const char* word;
};
KindText kindTextOf(WatchedChange::Kind kind) noexcept {
    switch (kind) {
    case WatchedChange::Kind::added:
        return {'+', "added"};
    case WatchedChange::Kind::removed:
        return {'-', "removed"};
    default:
        return {'~', "changed"};
    }
}

void printChange(const WatchedChange& change, const Tessel::TableReader& tables,
                 const IntfText& interfaces, bool json) {
    const std::string time = timeText(tables.committedAt());
    const KindText kind = kindTextOf(change.kind);
    if (json) {
        fmt::print(R"({{"generation":{},"time":"{}","change":"{}","route":{}}})"
                   "\n",
                   tables.generation(), time, kind.word,
                   change.now ? routeJson(*change.now, interfaces)
                              : routeKeyJson(change.table, change.key));
        return;
    }
    fmt::print("{} {} {}{}\n", tables.generation(), time, kind.sign,
               change.now ? routeText(*change.now, interfaces)
                          : fmt::format("{} {}", Tessel::wordOf(change.table), change.key));
}

/// Prints at most as many changes as are still wanted, and returns how many that were.
std::uint64_t printChanges(const std::vector<WatchedChange>& changes,
                           const Tessel::TableReader& tables, std::uint64_t wanted, bool json) {
    const IntfText interfaces({Interface::Names::read(tables)});
    assert(wanted > 0);
    std::uint64_t printed = 0;
    for (const WatchedChange& change : changes) {
        if (printed == wanted) {
            break;
        }
        printChange(change, tables, interfaces, json);
        ++printed;
    }
    std::fflush(stdout);
    return printed;
}

} // namespace

Tessel::Result<int> watchRoutes(const Request& request) {
    const EndSignals signals;
    const auto tables = openTables(request.tables);
    if (!tables) {
        return tables.refused();
    }
    TableWatch watch(tables.value());
    fmt::print(stderr, "ovixctl: watching tables \"{}\" from generation {} on\n", request.tables,
               watch.reader().generation());
    int code = ExitCode::success;
    std::uint64_t left = request.count;
    while (left != 0 && std::ferror(stdout) == 0) {
        try {
            if (watch.follow()) {
                note(request,
                     fmt::format("tables \"{}\" were made anew; what both have is shown as changed",
                                 request.tables));
            }
            if (const auto changes = watch.look(); !changes.empty()) {
                left -= printChanges(changes, watch.reader(), left, request.json);
                continue;
            }
        } catch (const Tessel::CorruptionDetected& corruption) {
            complain(request, corruption.what());
            code = ExitCode::failure;
        }
        if (signals.cameWithin(poll)) {
            break;
        }
    }
    if (std::ferror(stdout) != 0) {
        return Tessel::Refused{"standard output cannot be written"};
    }
    return code;
}

} // namespace OvixCtl
