#include "commands/LabelState.h"

#include <fmt/format.h>

#include "Published/InterfaceNames.h"
#include "Tables/TableMemory.h"
#include "Tessel/Exceptions.h"
#include "tables/TableView.h"

namespace OvixCtl {

std::optional<LabelState> LabelState::of(const Request& request) {
    const Tessel::Result<Json> ports = listOf(request, "ports");
    if (!checkTablesExist(request.tables) || !ports) {
        return std::nullopt;
    }
    std::set<std::string> down;
    for (const Json& port : ports.value().at("ports")) {
        if (port.at("state") != "up") {
            down.insert(cellOf(port.at("name")));
        }
    }
    const auto tables = openTables(request.tables);
    return tables ? std::optional(LabelState(tables.value(), std::move(down))) : std::nullopt;
}

LabelState::LabelState(Ptr<Tessel::TableReader> reader, std::set<std::string> down)
    : tables_(std::make_shared<const Mpls::PublishedTables>(reader)),
      names_(Interface::Names::read(*reader)), down_(std::move(down)) {}

std::string LabelState::text(std::uint32_t label) const {
    const auto key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
    try {
        for (std::size_t i = 0; i < Mpls::lfibs; ++i) {
            const auto table = static_cast<Mpls::TableId>(i);
            if (table != Mpls::TableId::transitLfib &&
                tables_->lfib(table)->route(key).viaSetKey != Mpls::LfibViaSetKey()) {
                return {};
            }
        }
        const Mpls::Hardware::Route route = tables_->hardware()->route(key);
        return route == Mpls::Hardware::Route() ? "no table has it"
               : route.unprogrammed             ? "not programmed"
                                                : ofAdjacency(route.adjacencyKey);
    } catch (const Tessel::CorruptionDetected& damage) {
        return damage.what();
    }
}

std::string LabelState::ofAdjacency(std::uint64_t key) const {
    const auto adjacency = tables_->hardware()->adjacency(key);
    if (!adjacency) {
        return fmt::format("no adjacency {}", key);
    }
    std::set<std::string> ways;
    for (const auto& entry : adjacency->entries(false)) {
        ways.emplace(names_.name(entry.intf));
    }
    for (const std::string& way : ways) {
        if (!down_.contains(way)) {
            return {};
        }
    }
    return fmt::format("{} {} down", fmt::join(ways, ", "), ways.size() == 1 ? "is" : "are");
}

} // namespace OvixCtl
