#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Tessel/Result.h"
#include "tables/TableView.h"

namespace OvixCtl {

/// An entry of a table as words give it, and the interfaces that it names.
struct ParsedEntry {
    Entry entry;
    std::vector<std::string> interfaces;
};

/// Parses an entry as routeText() prints it, and as `ovixctl lfib add --help` describes it. Refuses
/// other words, naming them.
Tessel::Result<ParsedEntry> parseEntry(const std::vector<std::string>& words);

/// The table and the key of an entry.
struct EntryName {
    Mpls::TableId table = Mpls::TableId::transitLfib;
    std::uint32_t key = 0;
    std::optional<Mpls::RouteOwner> owner{}; ///< unset: not said
};
/// [TABLE] KEY [table TABLE] [owner OWNER]; without a table, the transit LFIB.
Tessel::Result<EntryName> parseEntryName(const std::vector<std::string>& words);

/// The words that a label route may have behind its label.
std::vector<std::string_view> routeWords();

} // namespace OvixCtl
