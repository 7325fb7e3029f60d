#include <fmt/format.h>
#include <vector>

#include "Published/TablePublisher.h"
#include "Published/TransitRoutes.h"
#include "Tables/TableLoading.h"
#include "commands/Output.h"
#include "route/EntryTable.h"
#include "route/RouteRequest.h"
#include "tables/FrozenTables.h"

namespace OvixCtl {

using Mpls::TableId;

namespace {

Mpls::RouteKey keyOf(const RouteRequest& wanted) {
    return Mpls::RouteKey::fromLabel(Lumo::MplsLabel(wanted.route.label));
}

Tessel::Refused refused(const RouteRequest& wanted, const char* what) {
    return {
        fmt::format("label {} in table {}: {}", wanted.route.label, nameOf(wanted.table), what)};
}

/// Makes the change visible. Like `ip`, prints nothing when all is well.
int commit(const Request& request, Mpls::TablePublisher& publisher, const ChangeCounts& counts) {
    publisher.commit();
    if (request.json) {
        printCounts(request, publisher.tables().generation(), counts);
    }
    return ExitCode::success;
}

bool isThere(const Tessel::TableWriter& tables, TableId table, std::uint32_t key) {
    return static_cast<bool>(tables.entry(static_cast<std::size_t>(table), key));
}

/// A label that is switched is one of the hardware status as well, with an adjacency of its own.
bool isThere(const Tessel::TableWriter& tables, const RouteRequest& wanted) {
    const std::uint32_t label = wanted.route.label;
    return isThere(tables, wanted.table, label) ||
           (wanted.table == TableId::transitLfib &&
            (isThere(tables, TableId::hardwareRoutes, label) ||
             isThere(tables, TableId::hardwareAdjacencies, label)));
}

void publish(const RouteRequest& wanted, Mpls::TablePublisher& publisher) {
    for (const OvixAgent::PortConfig& port : wanted.interfaces.ports) {
        publisher.interfaces().intfId(port.name);
    }
    if (wanted.table != TableId::transitLfib) {
        OvixAgent::loadRoute(wanted.route, wanted.interfaces, publisher.lfib(wanted.table));
        return;
    }
    std::vector<Mpls::WeightedRecord> vias;
    for (const OvixAgent::ViaConfig& via : wanted.route.vias) {
        vias.push_back({OvixAgent::toViaRecord(via, wanted.interfaces), via.weight});
    }
    Mpls::transitRouteIs(publisher, keyOf(wanted), vias);
}

bool remove(const RouteRequest& wanted, Mpls::TablePublisher& publisher) {
    return wanted.table == TableId::transitLfib
               ? Mpls::transitRouteDel(publisher, keyOf(wanted))
               : publisher.lfib(wanted.table).routeDel(keyOf(wanted));
}

Tessel::Result<int> putRoute(const Request& request, bool mayReplace) {
    const Tessel::Result<RouteRequest> parsed = parseRoute(request.words);
    if (!parsed) {
        return usageError(parsed.refused());
    }
    const RouteRequest& wanted = parsed.value();
    Mpls::TablePublisher publisher(Tessel::TableMemory::sharedForWriting(request.tables));
    const bool wasThere = isThere(publisher.tables(), wanted);
    if (wasThere && !mayReplace) {
        return refused(wanted, "File exists");
    }
    try {
        publish(wanted, publisher);
    } catch (const std::exception& error) {
        return refused(wanted, error.what());
    }
    ChangeCounts counts;
    ++(wasThere ? counts.changed : counts.added);
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
    const Tessel::Result<RouteRequest> parsed = parseRouteKey(request.words);
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
