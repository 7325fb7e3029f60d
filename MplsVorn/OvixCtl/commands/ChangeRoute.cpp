// The commands that change one entry: add, replace and del.

#include "commands/ChangeRoute.h"

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

/// Says whether a label route that was added is not used for now.
void noteWaiting(const Request& request, Mpls::TablePublisher& publisher, const Entry& entry) {
    const auto* route = std::get_if<Mpls::LabelRoute>(&entry.content);
    const auto published =
        route != nullptr ? publisher.labelRoutes().published(route->label) : std::nullopt;
    if (published && *published != route->owner) {
        note(request, fmt::format("label {} is forwarded by the route of {}; this one waits",
                                  entry.key, Tessel::textOf(*published)));
    }
}

/// Whose route is removed when nobody is named: that of the operator, or else of a file.
Tessel::Result<Mpls::RouteOwner> ownerToRemove(Mpls::TablePublisher& publisher,
                                               const EntryName& name) {
    const auto owners = publisher.labelRoutes().owners(name.table, Lumo::MplsLabel(name.key));
    for (const Mpls::RouteOwner own : {Mpls::RouteOwner::byHand, Mpls::RouteOwner::file}) {
        if (std::find(owners.begin(), owners.end(), own) != owners.end()) {
            return own;
        }
    }
    const std::string other = Tessel::textOf(owners.front());
    return Tessel::Refused{
        fmt::format("it is a route of {}; \"owner {}\" removes it", other, other)};
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
    Mpls::TablePublisher publisher(openForBatch(request));
    const TableView now = viewOf(request, publisher);
    const bool existed = exists(now, publisher, entry);
    if (existed && !mayReplace) {
        return mustReplace(name);
    }
    for (const std::string& interface : parsed.value().interfaces) {
        publisher.interfaces().intfId(interface);
    }
    if (const auto changed = changeEntry(publisher, now, entry); !changed) {
        return refused(name, changed.refused().what);
    }
    noteWaiting(request, publisher, entry);
    ChangeCounts counts;
    ++(existed ? counts.changed : counts.added);
    return commit(request, publisher, counts);
}

Tessel::Refused notThere(const TableView& now, const EntryName& name) {
    const std::string of = name.owner ? ", as a route of " + Tessel::textOf(*name.owner) : "";
    return {fmt::format("{} {} is not in table {}{}{}", nounOf(name.table), name.key,
                        Tessel::wordOf(name.table), of, otherTables(now, name))};
}

Tessel::Result<void> removeLabelRoute(Mpls::TablePublisher& publisher, const TableView& now,
                                      const EntryName& name) {
    const Lumo::MplsLabel label(name.key);
    if (publisher.labelRoutes().owners(name.table, label).empty()) {
        return notThere(now, name);
    }
    const auto owner =
        name.owner ? Tessel::Result<Mpls::RouteOwner>(*name.owner) : ownerToRemove(publisher, name);
    if (!owner) {
        return refused(name, owner.refused().what);
    }
    return publisher.labelRoutes().routeDel(name.table, label, owner.value())
               ? Tessel::Result<void>()
               : notThere(now, name);
}

Tessel::Result<void> removeOther(Mpls::TablePublisher& publisher, const TableView& now,
                                 const EntryName& name) {
    if (!exists(now, name)) {
        return notThere(now, name);
    }
    const auto removed = removeEntry(publisher, now, name.table, name.key);
    return removed ? removed : refused(name, removed.refused().what);
}

} // namespace

bool exists(const TableView& now, Mpls::TablePublisher& publisher, const Entry& entry) {
    const auto* route = std::get_if<Mpls::LabelRoute>(&entry.content);
    if (route == nullptr) {
        return exists(now, EntryName{entry.table, entry.key});
    }
    const auto owners = publisher.labelRoutes().owners(route->table, route->label);
    return std::find(owners.begin(), owners.end(), route->owner) != owners.end();
}

Tessel::Refused mustReplace(const EntryName& name) {
    return {fmt::format("{} {} is already in table {}; use replace", nounOf(name.table), name.key,
                        Tessel::wordOf(name.table))};
}

Tessel::Result<void> removeNamed(Mpls::TablePublisher& publisher, const TableView& now,
                                 const EntryName& name) {
    return Mpls::isLfib(name.table) ? removeLabelRoute(publisher, now, name)
                                    : removeOther(publisher, now, name);
}

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
    Mpls::TablePublisher publisher(openForBatch(request));
    const TableView now = viewOf(request, publisher);
    const auto removed = removeNamed(publisher, now, name);
    return removed ? Tessel::Result<int>(commit(request, publisher, {0, 0, 1}))
                   : Tessel::Result<int>(removed.refused());
}

} // namespace OvixCtl
