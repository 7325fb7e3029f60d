#include <cstdio>
#include <fmt/format.h>

#include "commands/Command.h"
#include "commands/Selection.h"
#include "route/RouteJson.h"

namespace OvixCtl {

namespace {

/// What is shown: the entries in order, and behind them the routes that wait.
class Shown {
  public:
    Shown(const TableView& view, const ShowFilter& filter) : view_(&view), filter_(filter) {
        for (Entry& entry : view.waiting()) {
            if (filter.takes(entry)) {
                waiting_.push_back(std::move(entry));
            }
        }
    }

    /// Whether there is nothing to visit.
    bool empty() const {
        for (std::size_t i = 0; i < entryTables; ++i) {
            if (!select(*view_, filter_, static_cast<Mpls::TableId>(i)).entries.empty()) {
                return false;
            }
        }
        return waiting_.empty();
    }

    /// Visits each entry once, table by table, and notes the damaged ones.
    template <typename Visitor>
    void visit(Visitor&& visitor) {
        for (std::size_t i = 0; i < entryTables; ++i) {
            const Selection selection = select(*view_, filter_, static_cast<Mpls::TableId>(i));
            damage_.insert(damage_.end(), selection.damage.begin(), selection.damage.end());
            for (const auto& [table, key] : selection.entries) {
                visitOne(view_->entry(table, key), visitor);
            }
        }
        for (const Entry& entry : waiting_) {
            visitor(entry);
        }
    }
    /// What could not be read, once all entries have been visited.
    const std::vector<std::string>& damage() const noexcept { return damage_; }

  private:
    template <typename Visitor>
    void visitOne(const Entry& entry, Visitor& visitor) {
        if (const Damage* damage = entry.damage()) {
            damage_.push_back(fmt::format("table {}: {} {}: {}", Tessel::wordOf(entry.table),
                                          keyNameOf(entry.table), entry.key, damage->what));
        }
        if (!filter_.owner || entry.damage() != nullptr || filter_.takes(entry)) {
            visitor(entry);
        }
    }

    const TableView* view_;
    ShowFilter filter_;
    std::vector<std::string> damage_;
    std::vector<Entry> waiting_;
};

void printLines(Shown& shown, const IntfText& interfaces) {
    shown.visit([&](const Entry& entry) {
        std::string line =
            entry.waitsFor ? fmt::format("# waits for {}: ", Tessel::textOf(*entry.waitsFor)) : "";
        line += routeText(entry, interfaces) + '\n';
        std::fwrite(line.data(), 1, line.size(), stdout);
    });
}

/// One route per line within one object, as there may be a million.
void printJson(Shown& shown, const Tessel::TableReader& tables, const IntfText& interfaces) {
    fmt::print(R"({{"tables":{},"generation":{},"time":"{}","routes":[)", jsonText(tables.name()),
               tables.generation(), timeText(tables.committedAt()));
    const char* before = "\n";
    shown.visit([&](const Entry& entry) {
        fmt::print("{}{}", before, routeJson(entry, interfaces));
        before = ",\n";
    });
    fmt::print("]}}\n");
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
    Shown shown(view, filter.value());
    if (filter.value().key && shown.empty()) {
        return Tessel::Refused{
            fmt::format("tables \"{}\" have no {}", request.tables, filter.value().text())};
    }
    if (request.json) {
        printJson(shown, view.reader(), interfaces);
    } else {
        printLines(shown, interfaces);
    }
    for (const std::string& what : shown.damage()) {
        complain(request, what);
    }
    return shown.damage().empty() ? ExitCode::success : ExitCode::failure;
}

} // namespace OvixCtl
