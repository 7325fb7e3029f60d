#include <fmt/format.h>
#include <stdexcept>

#include "Commands.h"
#include "EntryTable.h"
#include "FrozenTables.h"
#include "Mpls/TablePublisher.h"
#include "Output.h"
#include "RouteRequest.h"
#include "TableLoading.h"

namespace OvixCtl {

namespace {

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

} // namespace

int addRoute(const CtlOptions& options, bool mayReplace) {
    const RouteRequest request = parseRoute(options.words);
    Mpls::TablePublisher publisher(Tessel::TableMemory::sharedForWriting(options.tables));
    const bool isThere{
        publisher.tables().entry(static_cast<std::size_t>(request.table), request.route.label)};
    if (isThere && !mayReplace) {
        fail(request, "File exists");
    }
    for (const OvixAgent::PortConfig& port : request.interfaces.ports) {
        publisher.interfaces().intfId(port.name);
    }
    try {
        OvixAgent::loadRoute(request.route, request.interfaces, publisher.lfib(request.table));
    } catch (const std::exception& refused) {
        fail(request, refused.what());
    }
    publisher.commit();
    ChangeCounts counts;
    ++(isThere ? counts.changed : counts.added);
    tell(options, publisher, counts);
    return ExitCode::success;
}

int deleteRoute(const CtlOptions& options) {
    const RouteRequest request = parseRouteKey(options.words);
    openTables(options.tables); // a route of tables that do not exist is not to be deleted
    Mpls::TablePublisher publisher(Tessel::TableMemory::sharedForWriting(options.tables));
    const auto key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(request.route.label));
    if (!publisher.lfib(request.table).routeDel(key)) {
        fail(request, "No such route");
    }
    publisher.commit();
    tell(options, publisher, {0, 0, 1});
    return ExitCode::success;
}

} // namespace OvixCtl
