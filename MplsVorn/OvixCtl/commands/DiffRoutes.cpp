#include <fmt/format.h>

#include "commands/Output.h"
#include "route/RoutePrinting.h"
#include "tables/FrozenTables.h"
#include "tables/TableDiff.h"
#include "tables/WantedTables.h"

namespace OvixCtl {

namespace {

void printLines(const std::vector<Change>& changes, const IntfText& interfaces) {
    for (const Change& change : changes) {
        if (change.before) {
            fmt::print("-{}\n", routeText(*change.before, interfaces));
        }
        if (change.after) {
            fmt::print("+{}\n", routeText(*change.after, interfaces));
        }
    }
}

void printJson(const std::vector<Change>& changes, const IntfText& interfaces,
               const Tessel::TableReader& tables) {
    const auto side = [&](const std::optional<Entry>& entry) {
        return entry ? routeJson(*entry, interfaces) : "null";
    };
    std::vector<std::string> list;
    for (const Change& change : changes) {
        list.push_back(
            fmt::format(R"({{"before":{},"after":{}}})", side(change.before), side(change.after)));
    }
    fmt::print(R"({{"tables":{},"generation":{},"changes":[{}]}})"
               "\n",
               jsonText(tables.name()), tables.generation(), fmt::join(list, ","));
}

} // namespace

Tessel::Result<int> diffRoutes(const Request& request) {
    const std::string& file = request.words.front();
    const WantedTables wanted(readConfig(file), file);
    const auto frozen = freezeTables(request.tables);
    if (!frozen) {
        return frozen.refused();
    }
    const TableView now(frozen.value());
    const TableDiff diff = differences(now, wanted.view());
    const IntfText interfaces(
        {Interface::Names::read(now.reader()), Interface::Names::read(wanted.view().reader())});
    if (request.json) {
        printJson(diff.changes, interfaces, now.reader());
    } else {
        printLines(diff.changes, interfaces);
    }
    for (const std::string& what : diff.damage) {
        complain(what);
    }
    if (!diff.damage.empty()) {
        return ExitCode::usage;
    }
    return diff.changes.empty() ? ExitCode::success : ExitCode::failure;
}

} // namespace OvixCtl
