#include <csignal>
#include <ctime>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Tessel/Exceptions.h"
#include "commands/Commands.h"
#include "commands/Output.h"
#include "route/RouteJson.h"
#include "route/RouteText.h"
#include "tables/FrozenTables.h"
#include "tables/TableWatch.h"

namespace OvixCtl {

namespace {

constexpr long pollMilliseconds = 20;

/// SIGINT and SIGTERM, held back so that they come between two looks.
class EndSignals {
  public:
    EndSignals() {
        sigemptyset(&set_);
        sigaddset(&set_, SIGINT);
        sigaddset(&set_, SIGTERM);
        sigprocmask(SIG_BLOCK, &set_, nullptr);
    }

    /// Waits for the time between two looks; true when one came.
    bool cameWhileWaiting() const {
        const timespec wait{0, pollMilliseconds * 1'000'000};
        return sigtimedwait(&set_, nullptr, &wait) > 0;
    }

  private:
    sigset_t set_{};
};

struct KindText {
    char sign;
    const char* word;
};
KindText textOf(WatchedChange::Kind kind) noexcept {
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
    const KindText kind = textOf(change.kind);
    if (json) {
        fmt::print("{}\n",
                   jsonText({{"generation", tables.generation()},
                             {"time", time},
                             {"change", kind.word},
                             {"route", change.now ? routeJson(*change.now, interfaces)
                                                  : routeKeyJson(change.table, change.key)}}));
        return;
    }
    fmt::print("{} {} {}{}\n", tables.generation(), time, kind.sign,
               change.now ? routeText(*change.now, interfaces)
                          : fmt::format("{} {}", nameOf(change.table), change.key));
}

/// Prints changes up to as many as are still wanted; how many that were.
std::uint64_t printChanges(const std::vector<WatchedChange>& changes,
                           const Tessel::TableReader& tables, std::uint64_t wanted, bool json) {
    const IntfText interfaces({Interface::Names::read(tables)});
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

int watchRoutes(const CtlOptions& options) {
    const EndSignals signals;
    TableWatch watch(openTables(options.tables));
    complain(fmt::format("watching tables \"{}\" from generation {} on", options.tables,
                         watch.reader().generation()));
    int code = ExitCode::success;
    std::uint64_t left = options.count == 0 ? ~std::uint64_t{0} : options.count;
    while (left != 0 && std::ferror(stdout) == 0) {
        try {
            if (const auto changes = watch.look(); !changes.empty()) {
                left -= printChanges(changes, watch.reader(), left, options.json);
                continue;
            }
        } catch (const Tessel::CorruptionDetected& corruption) {
            complain(corruption.what());
            code = ExitCode::failure;
        }
        if (signals.cameWhileWaiting()) {
            break;
        }
    }
    return code;
}

} // namespace OvixCtl
