#include <cassert>
#include <fmt/format.h>
#include <stdexcept>

#include "commands/Output.h"
#include "tables/WantedTables.h"

namespace OvixCtl {

namespace {

using Mpls::TableId;

Mpls::RouteKey keyOf(std::uint32_t label) {
    return Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
}

/// Writes an entry. It was read from tables that took it.
struct Put {
    void operator()(const Mpls::LabelRoute& route) const {
        if (const auto done = publisher.lfib(route.table).routeIs(route); !done) {
            throw std::length_error(done.refused().what);
        }
    }
    void operator()(const Mpls::Hardware::Route& route) const {
        publisher.hardware().routeIs(route);
    }
    void operator()(const Mpls::Hardware::AdjacencyVias& adjacency) const {
        publisher.hardware().adjacencyIs(key, *Mpls::Hardware::Adjacency::create(adjacency));
    }
    void operator()(const Routing::Multicast::MvpnVrfIntfId& vpn) const {
        publisher.mvpn().vrfIntfIdIs(vpn.vrfId, vpn.intfId);
    }
    void operator()(const Damage&) const { assert(false); }

    Mpls::TablePublisher& publisher;
    std::uint32_t key;
};

void remove(Mpls::TablePublisher& publisher, TableId table, std::uint32_t key) {
    switch (table) {
    case TableId::mvpnIntfStatus:
        publisher.mvpn().vrfIntfIdDel({key});
        return;
    case TableId::hardwareAdjacencies:
        publisher.hardware().adjacencyDel(key);
        return;
    case TableId::hardwareRoutes:
        publisher.hardware().routeDel(keyOf(key));
        return;
    default:
        assert(Mpls::isLfib(table));
        publisher.lfib(table).routeDel(keyOf(key));
    }
}

void apply(const std::vector<Change>& changes, Mpls::TablePublisher& publisher) {
    for (const Change& change : changes) {
        if (!change.after) {
            remove(publisher, change.before->table, change.before->key);
        }
    }
    for (const Change& change : changes) {
        if (change.after) {
            std::visit(Put{publisher, change.after->key}, change.after->content);
        }
    }
}

} // namespace

Tessel::Result<int> loadRoutes(const Request& request) {
    const std::string& file = request.words.front();
    const OvixAgent::AgentConfig config = readConfig(file);
    const WantedTables wanted(config, file);
    Mpls::TablePublisher publisher(Tessel::TableMemory::sharedForWriting(request.tables));
    if (const std::size_t repaired = publisher.tables().repaired(); repaired != 0) {
        complain(fmt::format("tables \"{}\": {} damaged entries were removed", request.tables,
                             repaired));
    }
    // The memory of these entries is not used again before the commit.
    const TableView now(
        Tessel::make<Tessel::TableReader>(request.tables, publisher.tables().memory()));
    const TableDiff diff = differences(now, wanted.view());
    for (const OvixAgent::PortConfig& port : config.ports) {
        publisher.interfaces().intfId(port.name);
    }
    apply(diff.changes, publisher);
    publisher.commit();
    printCounts(request, publisher.tables().generation(), countsOf(diff.changes));
    return ExitCode::success;
}

} // namespace OvixCtl
