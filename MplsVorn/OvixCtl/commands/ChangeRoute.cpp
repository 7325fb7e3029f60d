#include <exception>
#include <fmt/format.h>

#include "Published/TablePublisher.h"
#include "commands/Output.h"
#include "route/RouteGrammar.h"
#include "tables/FrozenTables.h"

namespace OvixCtl {

using Mpls::TableId;

namespace {

Mpls::RouteKey keyOf(Lumo::MplsLabel label) {
    return Mpls::RouteKey::fromLabel(label);
}

Tessel::Refused refused(const RouteName& name, const std::string& what) {
    return {fmt::format("label {} in table {}: {}", name.label.value(), Tessel::wordOf(name.table),
                        what)};
}

/// Makes the change visible. Like `ip`, prints nothing when all is well.
int commit(const Request& request, Mpls::TablePublisher& publisher, const ChangeCounts& counts) {
    publisher.commit();
    if (request.json) {
        printCounts(request, publisher.tables().generation(), counts);
    }
    return ExitCode::success;
}

bool hasEntry(const Tessel::TableWriter& tables, TableId table, Lumo::MplsLabel key) {
    return static_cast<bool>(tables.entry(static_cast<std::size_t>(table), key.value()));
}

/// A label that is switched is also in the hardware status, with an adjacency of its own.
bool exists(const Tessel::TableWriter& tables, const RouteName& name) {
    return hasEntry(tables, name.table, name.label) ||
           (name.table == TableId::transitLfib &&
            (hasEntry(tables, TableId::hardwareRoutes, name.label) ||
             hasEntry(tables, TableId::hardwareAdjacencies, name.label)));
}

Tessel::Result<void> publish(const ParsedRoute& parsed, Mpls::TablePublisher& publisher) {
    for (const std::string& name : parsed.interfaces) {
        publisher.interfaces().intfId(name);
    }
    return parsed.route.table == TableId::transitLfib
               ? Mpls::transitRouteIs(publisher, parsed.route)
               : publisher.lfib(parsed.route.table).routeIs(parsed.route);
}

bool remove(const RouteName& name, Mpls::TablePublisher& publisher) {
    return name.table == TableId::transitLfib
               ? Mpls::transitRouteDel(publisher, keyOf(name.label))
               : publisher.lfib(name.table).routeDel(keyOf(name.label));
}

Tessel::Result<int> putRoute(const Request& request, bool mayReplace) {
    const Tessel::Result<ParsedRoute> parsed = parseRoute(request.words);
    if (!parsed) {
        return usageError(parsed.refused());
    }
    const RouteName name{parsed.value().route.table, parsed.value().route.label};
    Mpls::TablePublisher publisher(Tessel::TableMemory::sharedForWriting(request.tables));
    const bool existed = exists(publisher.tables(), name);
    if (existed && !mayReplace) {
        return refused(name, "File exists");
    }
    if (const auto published = publish(parsed.value(), publisher); !published) {
        return refused(name, published.refused().what);
    }
    ChangeCounts counts;
    ++(existed ? counts.changed : counts.added);
    return commit(request, publisher, counts);
}

} // namespace

Tessel::Result<int> addRoute(const Request& request) {
    return putRoute(request, false);
}

Tessel::Result<int> replaceRoute(const Request& request) {
    return putRoute(request, true);
}

Tessel::Result<int> deleteRoute(const Request& request) {
    const Tessel::Result<RouteName> parsed = parseRouteName(request.words);
    if (!parsed) {
        return usageError(parsed.refused());
    }
    if (const auto tables = openTables(request.tables); !tables) {
        return tables.refused(); // opening them for writing would create them
    }
    Mpls::TablePublisher publisher(Tessel::TableMemory::sharedForWriting(request.tables));
    if (!remove(parsed.value(), publisher)) {
        return refused(parsed.value(), "No such route");
    }
    return commit(request, publisher, {0, 0, 1});
}

} // namespace OvixCtl
