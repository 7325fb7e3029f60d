#include "commands/Selection.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>

#include "Config/ConfigText.h"
#include "route/RouteWords.h"

namespace OvixCtl {

using Mpls::TableId;

namespace {

constexpr auto shownTables = shownTableWords();

bool isNumber(const std::string& word) {
    return !word.empty() && word.find_first_not_of("0123456789") == std::string::npos;
}

/// Adjacencies belong to the hardware status.
std::string_view shownWordOf(TableId table) noexcept {
    return Tessel::wordOf(table == TableId::hardwareAdjacencies ? TableId::hardwareRoutes : table);
}

void selectAll(const TableView& view, TableId table, Selection& selection) {
    const TableView::Keys keys = view.keys(table);
    for (const std::uint32_t key : keys.keys) {
        selection.entries.push_back({table, key});
    }
    selection.damage.insert(selection.damage.end(), keys.damage.begin(), keys.damage.end());
}

void selectLabel(const TableView& view, TableId table, std::uint32_t label, Selection& selection) {
    if (!view.has(table, label)) {
        return;
    }
    selection.entries.push_back({table, label});
    if (table != TableId::hardwareRoutes) {
        return;
    }
    const Entry entry = view.entry(table, label);
    if (const auto* hardware = std::get_if<Mpls::Hardware::Route>(&entry.content)) {
        const auto adjacency = static_cast<std::uint32_t>(hardware->adjacencyKey);
        if (view.has(TableId::hardwareAdjacencies, adjacency)) {
            selection.entries.push_back({TableId::hardwareAdjacencies, adjacency});
        }
    }
}

void selectVrf(const TableView& view, std::uint32_t vrf, Selection& selection) {
    const TableView::Keys keys = view.keys(TableId::mvpnIntfStatus);
    if (std::binary_search(keys.keys.begin(), keys.keys.end(), vrf)) {
        selection.entries.push_back({TableId::mvpnIntfStatus, vrf});
    }
}

/// Throws UsageError.
ShowFilter filterFrom(const std::vector<std::string>& words) {
    ShowFilter filter;
    auto word = words.begin();
    if (word != words.end() && !isNumber(*word)) {
        filter.table = *word++;
        if (std::find(shownTables.begin(), shownTables.end(), filter.table) == shownTables.end()) {
            throw UsageError(fmt::format("there is no table {}{}",
                                         OvixAgent::inQuotes(filter.table),
                                         OvixAgent::suggestion(filter.table, shownTables)));
        }
    }
    if (word != words.end()) {
        filter.key = filter.table == Tessel::wordOf(TableId::mvpnIntfStatus)
                         ? static_cast<std::uint32_t>(parseNumber(
                               *word++, "VRF id", 0, std::numeric_limits<std::uint32_t>::max()))
                         : parseLabel(*word++).value();
    }
    if (word != words.end()) {
        throw UsageError(fmt::format("{} is not expected here", OvixAgent::inQuotes(*word)));
    }
    return filter;
}

} // namespace

std::string ShowFilter::text() const {
    const std::string_view noun =
        table == Tessel::wordOf(TableId::mvpnIntfStatus) ? "VRF" : "label";
    return fmt::format("{} {}{}{}", noun, key.value_or(0), table.empty() ? "" : " in table ",
                       table);
}

Tessel::Result<ShowFilter> parseShowFilter(const std::vector<std::string>& words) {
    return readWords([&] { return filterFrom(words); });
}

Selection select(const TableView& view, const ShowFilter& filter) {
    Selection selection;
    for (std::size_t i = 0; i < entryTables; ++i) {
        const auto table = static_cast<TableId>(i);
        if (!filter.table.empty() && shownWordOf(table) != filter.table) {
            continue;
        }
        if (!filter.key) {
            selectAll(view, table, selection);
        } else if (Mpls::isLfib(table) || table == TableId::hardwareRoutes) {
            selectLabel(view, table, *filter.key, selection);
        } else if (table == TableId::mvpnIntfStatus && !filter.table.empty()) {
            selectVrf(view, *filter.key, selection);
        }
    }
    return selection;
}

} // namespace OvixCtl
