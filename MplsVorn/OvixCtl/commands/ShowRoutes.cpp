#include <fmt/format.h>

#include "commands/Command.h"
#include "commands/Selection.h"
#include "route/RouteJson.h"

namespace OvixCtl {

namespace {

/// Visits the entries in order.
template <typename Visitor>
void visit(const TableView& view, const Selection& selection, Visitor&& visitor) {
    for (const auto& [table, key] : selection.entries) {
        visitor(view.entry(table, key));
    }
}

void printLines(const TableView& view, const Selection& selection, const IntfText& interfaces) {
    visit(view, selection,
          [&](const Entry& entry) { fmt::print("{}\n", routeText(entry, interfaces)); });
}

/// One route per line within one object, as there may be a million.
void printJson(const TableView& view, const Selection& selection, const IntfText& interfaces) {
    fmt::print(R"({{"tables":{},"generation":{},"time":"{}","routes":[)",
               jsonText(view.reader().name()), view.reader().generation(),
               timeText(view.reader().committedAt()));
    const char* before = "\n";
    visit(view, selection, [&](const Entry& entry) {
        fmt::print("{}{}", before, routeJson(entry, interfaces));
        before = ",\n";
    });
    fmt::print("]}}\n");
}

/// Reports damaged entries, and returns how many there are.
std::size_t reportDamage(const Request& request, const TableView& view,
                         const Selection& selection) {
    std::size_t found = selection.damage.size();
    for (const std::string& what : selection.damage) {
        complain(request, what);
    }
    visit(view, selection, [&](const Entry& entry) {
        if (const Damage* damage = entry.damage()) {
            complain(request, fmt::format("table {}: {} {}: {}", Tessel::wordOf(entry.table),
                                          keyNameOf(entry.table), entry.key, damage->what));
            ++found;
        }
    });
    return found;
}

} // namespace

Tessel::Result<int> showRoutes(const Request& request) {
    const Tessel::Result<ShowFilter> filter = parseShowFilter(request.words);
    if (!filter) {
        return usageError(request, filter.refused());
    }
    const auto frozen = freezeTables(request.tables);
    if (!frozen) {
        return frozen.refused();
    }
    const TableView view(frozen.value());
    const IntfText interfaces({Interface::Names::read(view.reader())});
    const Selection selection = select(view, filter.value());
    if (filter.value().key && selection.entries.empty()) {
        return Tessel::Refused{
            fmt::format("tables \"{}\" have no {}", request.tables, filter.value().text())};
    }
    (request.json ? printJson : printLines)(view, selection, interfaces);
    return reportDamage(request, view, selection) == 0 ? ExitCode::success : ExitCode::failure;
}

} // namespace OvixCtl
