#include "Mpls/Hardware/Status.h"

namespace Mpls::Hardware {

Status::Status(Ptr<const Tessel::TableReader> tables)
    : Entity("status"), tables_(std::move(tables)),
      routes_(tables_->table(describe(TableId::hardwareRoutes).path, entityTypeName)),
      adjacencies_(tables_->table(describe(TableId::hardwareAdjacencies).path, entityTypeName)) {}

Route Status::readRoute(RouteKey key) const {
    if (key.depth() != 1) {
        return {};
    }
    const std::uint32_t label = key.topLabel().value();
    const Tessel::TableRef entry = tables_->entry(routes_, label);
    if (!entry) {
        return {};
    }
    if (entry != Tessel::TableLayout::sealed(entry.unit(),
                                             Tessel::TableLayout::entryPlace(routes_, label))) {
        tables_->refuse("hardware route of label", label);
    }
    Recent& recent = recentOf(key);
    recent.held = tables_->held();
    recent.route = Route::unpacked(key, entry.unit());
    recent.adjacencyRead = false;
    return recent.route;
}

const Ptr<const Adjacency>& Status::readAdjacency(const Route& route) const {
    Recent& recent = recentOf(route.routeKey);
    // Another route may have taken the place meanwhile; then this one's takes it back.
    recent.held = 0;
    recent.adjacency = adjacency(route.adjacencyKey);
    recent.route = route;
    recent.adjacencyRead = true;
    recent.held = tables_->held();
    return recent.adjacency;
}

Ptr<const Adjacency> Status::adjacency(std::uint64_t key) const {
    if (key > Tessel::TableLayout::maxKey) {
        return nullptr;
    }
    const Tessel::TableRef entry = tables_->entry(adjacencies_, static_cast<std::uint32_t>(key));
    return entry ? Adjacency::read(*tables_, entry) : nullptr;
}

} // namespace Mpls::Hardware
