#include "commands/Selection.h"

#include <algorithm>
#include <cassert>
#include <fmt/format.h>

#include "Config/ConfigText.h"
#include "route/RouteWords.h"

namespace OvixCtl {

using Mpls::TableId;

namespace {

/// Adjacencies belong to the hardware status.
bool isShownAs(TableId table, TableId wanted) noexcept {
    return table == wanted ||
           (table == TableId::hardwareAdjacencies && wanted == TableId::hardwareRoutes);
}

void selectAll(const TableView& view, TableId table, Selection& selection) {
    const TableView::Keys keys = view.keys(table);
    for (const std::uint32_t key : keys.keys) {
        selection.entries.push_back({table, key});
    }
    selection.damage.insert(selection.damage.end(), keys.damage.begin(), keys.damage.end());
}

void selectLabel(const TableView& view, TableId table, std::uint32_t label, Selection& selection) {
    assert(table != TableId::mvpnIntfStatus);
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
    if (word != words.end() && !isNumber(*word) && *word != "owner") {
        filter.table = parseTable(*word++, Tessel::wordList<TableId>());
    }
    if (word != words.end() && *word != "owner") {
        filter.key = parseKey(*word++, filter.table.value_or(TableId::transitLfib));
    }
    if (word != words.end() && *word == "owner") {
        if (++word == words.end()) {
            throw UsageError("an owner is missing at the end");
        }
        filter.owner = parseOwner(*word++);
    }
    if (word != words.end()) {
        throw UsageError(fmt::format("{} is not expected here", OvixAgent::inQuotes(*word)));
    }
    return filter;
}

} // namespace

bool ShowFilter::takes(const Entry& entry) const noexcept {
    const auto* route = std::get_if<Mpls::LabelRoute>(&entry.content);
    return (!table || *table == entry.table) && (!key || *key == entry.key) &&
           (!owner || (route != nullptr && route->owner == *owner));
}

std::string ShowFilter::text() const {
    const std::string in = table ? fmt::format(" in table {}", Tessel::wordOf(*table)) : "";
    const std::string of = owner ? " of owner " + Tessel::textOf(*owner) : "";
    return fmt::format("{} {}{}{}", nounOf(table.value_or(TableId::transitLfib)), key.value_or(0),
                       in, of);
}

Tessel::Result<ShowFilter> parseShowFilter(const std::vector<std::string>& words) {
    return readWords([&] { return filterFrom(words); });
}

Selection select(const TableView& view, const ShowFilter& filter, TableId table) {
    Selection selection;
    if ((filter.table && !isShownAs(table, *filter.table)) ||
        (filter.owner && !Mpls::isLfib(table))) {
        return selection;
    }
    if (!filter.key) {
        selectAll(view, table, selection);
    } else if (Mpls::isLfib(table) || table == TableId::hardwareRoutes ||
               filter.table == TableId::hardwareAdjacencies) {
        selectLabel(view, table, *filter.key, selection);
    } else if (filter.table == TableId::mvpnIntfStatus) {
        selectVrf(view, *filter.key, selection);
    }
    return selection;
}

} // namespace OvixCtl
