#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands/Commands.h"
#include "commands/Output.h"
#include "route/RouteJson.h"
#include "route/RouteText.h"
#include "tables/FrozenTables.h"
#include "tables/TableDiff.h"
#include "tables/WantedTables.h"

namespace OvixCtl {

namespace {

using Json = nlohmann::ordered_json;

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
    const auto side = [&](const std::optional<RouteView>& route) {
        return route ? routeJson(*route, interfaces) : Json();
    };
    Json list = Json::array();
    for (const Change& change : changes) {
        list.push_back(Json{{"before", side(change.before)}, {"after", side(change.after)}});
    }
    fmt::print("{}\n", jsonText({{"tables", tables.name()},
                                 {"generation", tables.generation()},
                                 {"changes", std::move(list)}}));
}

} // namespace

int diffRoutes(const CtlOptions& options) {
    const WantedTables wanted(readConfig(options.file), options.file);
    const TableView now(freezeTables(options.tables));
    const TableDiff diff = differences(now, wanted.view());
    const IntfText interfaces(
        {Interface::Names::read(now.reader()), Interface::Names::read(wanted.view().reader())});
    if (options.json) {
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
