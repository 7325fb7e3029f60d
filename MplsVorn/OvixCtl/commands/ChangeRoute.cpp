// The commands that change one entry: add, replace and del.

#include <algorithm>
#include <fmt/format.h>

#include "commands/Command.h"
#include "route/RouteGrammar.h"
#include "tables/EntryWriting.h"

namespace OvixCtl {

using Mpls::TableId;

namespace {

/// "label 100 in table transit".
std::string text(const EntryName& name) {
    return fmt::format("{} {} in table {}", nounOf(name.table), name.key,
                       Tessel::wordOf(name.table));
}
Tessel::Refused refused(const EntryName& name, const std::string& what) {
    return {text(name) + ": " + what};
}

/// Makes the change visible. Like `ip`, prints nothing when all is well.
int commit(const Request& request, Mpls::TablePublisher& publisher, const ChangeCounts& counts) {
    publisher.commit();
    if (request.json) {
        printCounts(request, publisher.tables().generation(), counts);
    }
    return ExitCode::success;
}

/// The memory of these entries is not used again before the commit.
TableView viewOf(const Request& request, Mpls::TablePublisher& publisher) {
    return TableView(
        Tessel::make<Tessel::TableReader>(request.tables, publisher.tables().memory()));
}

bool exists(const TableView& now, const EntryName& name) {
    if (name.table != TableId::mvpnIntfStatus) {
        return now.has(name.table, name.key);
    }
    const auto vrfs = now.keys(name.table).keys;
    return std::binary_search(vrfs.begin(), vrfs.end(), name.key);
}

/// "; it is in table decap": the other LFIBs that have the label.
std::string otherTables(const TableView& now, const EntryName& name) {
    std::string others;
    for (std::size_t i = 0; i < Mpls::lfibs && Mpls::isLfib(name.table); ++i) {
        const auto table = static_cast<TableId>(i);
        if (table != name.table && now.has(table, name.key)) {
            others += fmt::format("{} {}", others.empty() ? "; it is in table" : " and",
                                  Tessel::wordOf(table));
        }
    }
    return others;
}

Tessel::Result<int> putEntry(const Request& request, bool mayReplace) {
    const Tessel::Result<ParsedEntry> parsed = parseEntry(request.words);
    if (!parsed) {
        return usageError(request, parsed.refused());
    }
    const Entry& entry = parsed.value().entry;
    const EntryName name{entry.table, entry.key};
    if (Mpls::isLfib(name.table) || name.table == TableId::hardwareRoutes) {
        if (const auto legal = Mpls::checkRouteLabel(Lumo::MplsLabel(name.key)); !legal) {
            return usageError(request, legal.refused());
        }
    }
    if (const auto present = requireTables(request); !present) {
        return present.refused();
    }
    Mpls::TablePublisher publisher(Tessel::TableMemory::sharedForWriting(request.tables));
    const TableView now = viewOf(request, publisher);
    const bool existed = exists(now, name);
    if (existed && !mayReplace) {
        return Tessel::Refused{fmt::format("{} {} is already in table {}; use replace",
                                           nounOf(name.table), name.key,
                                           Tessel::wordOf(name.table))};
    }
    for (const std::string& interface : parsed.value().interfaces) {
        publisher.interfaces().intfId(interface);
    }
    if (const auto changed = changeEntry(publisher, now, entry); !changed) {
        return refused(name, changed.refused().what);
    }
    ChangeCounts counts;
    ++(existed ? counts.changed : counts.added);
    return commit(request, publisher, counts);
}

} // namespace

Tessel::Result<int> addRoute(const Request& request) {
    return putEntry(request, false);
}

Tessel::Result<int> replaceRoute(const Request& request) {
    return putEntry(request, true);
}

Tessel::Result<int> deleteRoute(const Request& request) {
    const Tessel::Result<EntryName> parsed = parseEntryName(request.words);
    if (!parsed) {
        return usageError(request, parsed.refused());
    }
    const EntryName& name = parsed.value();
    if (const auto tables = openTables(request.tables); !tables) {
        return tables.refused(); // opening them for writing would create them
    }
    Mpls::TablePublisher publisher(Tessel::TableMemory::sharedForWriting(request.tables));
    const TableView now = viewOf(request, publisher);
    if (!exists(now, name)) {
        return Tessel::Refused{fmt::format("{} {} is not in table {}{}", nounOf(name.table),
                                           name.key, Tessel::wordOf(name.table),
                                           otherTables(now, name))};
    }
    if (const auto removed = removeEntry(publisher, now, name.table, name.key); !removed) {
        return refused(name, removed.refused().what);
    }
    return commit(request, publisher, {0, 0, 1});
}

} // namespace OvixCtl
