#include <array>
#include <fmt/format.h>
#include <unordered_set>

#include "Tables/TableLoading.h"
#include "commands/Output.h"
#include "route/EntryTable.h"
#include "tables/TableDiff.h"
#include "tables/WantedTables.h"

namespace OvixCtl {

using Mpls::TableId;
using OvixAgent::AgentConfig;

namespace {

/// The keys of one table that are to be written.
using Keys = std::unordered_set<std::uint64_t>;
using KeysByTable = std::array<Keys, entryTables>;

KeysByTable keysToWrite(const std::vector<Change>& changes) {
    KeysByTable keys;
    for (const Change& change : changes) {
        if (change.after) {
            keys[static_cast<std::size_t>(change.after->table)].insert(change.after->key);
        }
    }
    return keys;
}

/// Leaves in the configuration's tables what is to be written.
void keepOnly(AgentConfig& config, const KeysByTable& keys) {
    const auto keep = [&](auto& list, std::size_t table, auto keyOf) {
        std::erase_if(list, [&](const auto& entry) { return !keys[table].contains(keyOf(entry)); });
    };
    const auto labelOf = [](const auto& route) { return route.label; };
    for (std::size_t i = 0; i < config.lfib.tables.size(); ++i) {
        keep(config.lfib.tables[i], i, labelOf);
    }
    keep(config.hardware.routes, static_cast<std::size_t>(TableId::hardwareRoutes), labelOf);
    keep(config.hardware.adjacencies, static_cast<std::size_t>(TableId::hardwareAdjacencies),
         [](const auto& adjacency) { return adjacency.id; });
    keep(config.mvpn, static_cast<std::size_t>(TableId::mvpnIntfStatus),
         [](const auto& entry) { return entry.vrfId; });
}

void remove(Mpls::TablePublisher& publisher, TableId table, std::uint32_t key) {
    if (table == TableId::mvpnIntfStatus) {
        publisher.mvpn().vrfIntfIdDel({key});
    } else if (table == TableId::hardwareAdjacencies) {
        publisher.hardware().adjacencyDel(key);
    } else {
        const auto routeKey = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(key));
        if (table == TableId::hardwareRoutes) {
            publisher.hardware().routeDel(routeKey);
        } else {
            publisher.lfib(table).routeDel(routeKey);
        }
    }
}

} // namespace

Tessel::Result<int> loadRoutes(const Request& request) {
    const std::string& file = request.words.front();
    AgentConfig config = readConfig(file);
    const WantedTables wanted(config, file);
    Mpls::TablePublisher publisher(Tessel::TableMemory::sharedForWriting(request.tables));
    if (const std::size_t repaired = publisher.tables().repaired(); repaired != 0) {
        complain(fmt::format("tables \"{}\": {} damaged entries were removed", request.tables,
                             repaired));
    }
    // Nothing of what is there now is used again before the commit.
    const TableView now(
        Tessel::make<Tessel::TableReader>(request.tables, publisher.tables().memory()));
    const TableDiff diff = differences(now, wanted.view());
    for (const Change& change : diff.changes) {
        if (!change.after) {
            remove(publisher, change.before->table, change.before->key);
        }
    }
    keepOnly(config, keysToWrite(diff.changes));
    OvixAgent::loadTables(config, file, publisher);
    publisher.commit();
    printCounts(request, publisher.tables().generation(), countsOf(diff.changes));
    return ExitCode::success;
}

} // namespace OvixCtl
