#include <fmt/format.h>
#include <stdexcept>
#include <vector>

#include "Published/TablePublisher.h"
#include "Published/TransitRoutes.h"
#include "Tables/TableLoading.h"
#include "commands/Commands.h"
#include "commands/Output.h"
#include "route/EntryTable.h"
#include "route/RouteRequest.h"
#include "tables/FrozenTables.h"

namespace OvixCtl {

using Mpls::TableId;

namespace {

Mpls::RouteKey keyOf(const RouteRequest& request) {
    return Mpls::RouteKey::fromLabel(Lumo::MplsLabel(request.route.label));
}

[[noreturn]] void fail(const RouteRequest& request, const char* what) {
    throw std::runtime_error(
        fmt::format("label {} in table {}: {}", request.route.label, nameOf(request.table), what));
}

/// Like `ip`, these say nothing when all is well.
void tell(const CtlOptions& options, const Mpls::TablePublisher& publisher,
          const ChangeCounts& counts) {
    if (options.json) {
        printCounts(options, publisher.tables().generation(), counts);
    }
}

bool isThere(const Tessel::TableWriter& tables, TableId table, std::uint32_t key) {
    return static_cast<bool>(tables.entry(static_cast<std::size_t>(table), key));
}

/// A label that is switched is one of the hardware status as well, with an adjacency of its own.
bool isThere(const Tessel::TableWriter& tables, const RouteRequest& request) {
    const std::uint32_t label = request.route.label;
    return isThere(tables, request.table, label) ||
           (request.table == TableId::transitLfib &&
            (isThere(tables, TableId::hardwareRoutes, label) ||
             isThere(tables, TableId::hardwareAdjacencies, label)));
}

void publish(const RouteRequest& request, Mpls::TablePublisher& publisher) {
    for (const OvixAgent::PortConfig& port : request.interfaces.ports) {
        publisher.interfaces().intfId(port.name);
    }
    if (request.table != TableId::transitLfib) {
        OvixAgent::loadRoute(request.route, request.interfaces, publisher.lfib(request.table));
        return;
    }
    std::vector<Mpls::WeightedVia> vias;
    for (const OvixAgent::ViaConfig& via : request.route.vias) {
        vias.push_back({OvixAgent::toViaRecord(via, request.interfaces), via.weight});
    }
    Mpls::transitRouteIs(publisher, keyOf(request), vias);
}

bool remove(const RouteRequest& request, Mpls::TablePublisher& publisher) {
    return request.table == TableId::transitLfib
               ? Mpls::transitRouteDel(publisher, keyOf(request))
               : publisher.lfib(request.table).routeDel(keyOf(request));
}

} // namespace

int addRoute(const CtlOptions& options, bool mayReplace) {
    const RouteRequest request = parseRoute(options.words);
    Mpls::TablePublisher publisher(Tessel::TableMemory::sharedForWriting(options.tables));
    const bool wasThere = isThere(publisher.tables(), request);
    if (wasThere && !mayReplace) {
        fail(request, "File exists");
    }
    try {
        publish(request, publisher);
    } catch (const std::exception& refused) {
        fail(request, refused.what());
    }
    publisher.commit();
    ChangeCounts counts;
    ++(wasThere ? counts.changed : counts.added);
    tell(options, publisher, counts);
    return ExitCode::success;
}

int deleteRoute(const CtlOptions& options) {
    const RouteRequest request = parseRouteKey(options.words);
    openTables(options.tables); // a route of tables that do not exist is not to be deleted
    Mpls::TablePublisher publisher(Tessel::TableMemory::sharedForWriting(options.tables));
    if (!remove(request, publisher)) {
        fail(request, "No such route");
    }
    publisher.commit();
    tell(options, publisher, {0, 0, 1});
    return ExitCode::success;
}

} // namespace OvixCtl
