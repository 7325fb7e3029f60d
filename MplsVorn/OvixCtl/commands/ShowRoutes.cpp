#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "commands/Commands.h"
#include "commands/Output.h"
#include "commands/Selection.h"
#include "route/EntryTable.h"
#include "route/RouteJson.h"
#include "route/RouteRows.h"
#include "tables/FrozenTables.h"

namespace OvixCtl {

namespace {

/// Visits the entries in order.
template <typename Visitor>
void visit(const TableView& view, const Selection& selection, Visitor&& visitor) {
    for (const Selection::Entry& entry : selection.entries) {
        visitor(view.entry(entry.table, entry.key));
    }
}

void printTable(const TableView& view, const Selection& selection, const IntfText& interfaces) {
    TextTable table(routeColumns());
    visit(view, selection, [&](const RouteView& route) {
        for (const TextTable::Cells& row : routeRows(route, interfaces)) {
            table.measure(row);
        }
    });
    fmt::print("{}", table.heading());
    visit(view, selection, [&](const RouteView& route) {
        for (const TextTable::Cells& row : routeRows(route, interfaces)) {
            fmt::print("{}", table.line(row));
        }
    });
}

/// One route per line within one object, so that it needs no room either.
void printJson(const TableView& view, const Selection& selection, const IntfText& interfaces) {
    std::string start = jsonText({{"tables", view.reader().name()},
                                  {"generation", view.reader().generation()},
                                  {"time", timeText(view.reader().committedAt())},
                                  {"routes", nlohmann::ordered_json::array()}});
    start.resize(start.size() - 2); // "]}"
    fmt::print("{}", start);
    const char* before = "\n";
    visit(view, selection, [&](const RouteView& route) {
        fmt::print("{}{}", before, jsonText(routeJson(route, interfaces)));
        before = ",\n";
    });
    fmt::print("]}}\n");
}

/// Tells of what cannot be right; how much there is.
std::size_t tellDamage(const TableView& view, const Selection& selection) {
    std::size_t found = selection.damage.size();
    for (const std::string& what : selection.damage) {
        complain(what);
    }
    visit(view, selection, [&](const RouteView& route) {
        if (const auto* damaged = std::get_if<DamagedView>(&route.content)) {
            complain(fmt::format("table {}: {} {}: {}", nameOf(route.table), keyNameOf(route.table),
                                 route.key, damaged->what));
            ++found;
        }
    });
    return found;
}

} // namespace

int showRoutes(const CtlOptions& options) {
    const ShowFilter filter = parseShowFilter(options.words);
    const TableView view(freezeTables(options.tables));
    const IntfText interfaces({Interface::Names::read(view.reader())});
    const Selection selection = select(view, filter);
    if (filter.key && selection.entries.empty()) {
        throw std::runtime_error(
            fmt::format("tables \"{}\" have no {}", options.tables, filter.text()));
    }
    (options.json ? printJson : printTable)(view, selection, interfaces);
    return tellDamage(view, selection) == 0 ? ExitCode::success : ExitCode::failure;
}

} // namespace OvixCtl
