#include "Mpls/Hardware/StatusWriter.h"

#include <stdexcept>
#include <string>

namespace Mpls::Hardware {

namespace {

std::uint32_t labelOf(RouteKey key) {
    if (key.depth() != 1) {
        throw std::invalid_argument("only routes of one label are kept");
    }
    return key.topLabel().value();
}

std::uint32_t checkedKey(std::uint64_t key) {
    if (key > Tessel::TableLayout::maxKey) {
        throw std::invalid_argument("adjacency " + std::to_string(key) + " is not 0 to " +
                                    std::to_string(Tessel::TableLayout::maxKey));
    }
    return static_cast<std::uint32_t>(key);
}

} // namespace

Route StatusWriter::route(RouteKey key) const {
    const auto entry = tables_->entry(routeTable, labelOf(key));
    return entry ? Route::unpacked(key, entry.unit()) : Route();
}

void StatusWriter::routeIs(const Route& route) {
    const std::uint32_t label = labelOf(route.routeKey);
    checkedKey(route.adjacencyKey);
    tables_->entryIs(routeTable, label,
                     Tessel::TableLayout::sealed(
                         route.packed(), Tessel::TableLayout::entryPlace(routeTable, label)));
}

bool StatusWriter::routeDel(RouteKey key) {
    const std::uint32_t label = labelOf(key);
    const bool there{tables_->entry(routeTable, label)};
    tables_->entryIs(routeTable, label, {});
    return there;
}

void StatusWriter::adjacencyIs(std::uint64_t key, const Adjacency& adjacency) {
    tables_->recordEntryIs(adjacencyTable, checkedKey(key), Tessel::RecordKind::adjacency,
                           adjacency.words());
}

bool StatusWriter::adjacencyDel(std::uint64_t key) {
    return key <= Tessel::TableLayout::maxKey &&
           tables_->recordEntryDel(adjacencyTable, static_cast<std::uint32_t>(key));
}

} // namespace Mpls::Hardware
