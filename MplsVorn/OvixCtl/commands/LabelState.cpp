#include "commands/LabelState.h"

#include <fmt/format.h>
#include <tuple>

#include "Tables/TableLoading.h"
#include "Tables/TableMemory.h"
#include "Tessel/Exceptions.h"
#include "commands/AgentSituation.h"
#include "tables/TableView.h"

namespace OvixCtl {

Tessel::Result<LabelState> LabelState::of(const Request& request) {
    const Tessel::Result<OvixAgent::Situation> situation = configurationOf(request);
    if (!situation) {
        return situation.refused();
    }
    const auto& [config, file] = std::tie(situation.value().config, situation.value().file);
    if (const std::string& name = situation.value().tablesName; !name.empty()) {
        const auto shared = openTables(name);
        return shared ? Tessel::Result<LabelState>(LabelState(shared.value(), config))
                      : shared.refused();
    }
    const auto publisher = std::make_shared<Mpls::TablePublisher>(Tessel::TableMemory::ofProcess());
    if (const auto loaded = OvixAgent::loadTables(config, file, *publisher); !loaded) {
        return loaded.refused();
    }
    publisher->commit();
    LabelState state(Tessel::make<Tessel::TableReader>("tables", publisher->tables().memory()),
                     config);
    state.configured_ = publisher;
    return state;
}

LabelState::LabelState(Ptr<Tessel::TableReader> reader, const OvixAgent::AgentConfig& config)
    : tables_(std::make_shared<const Mpls::PublishedTables>(reader)),
      names_(Interface::Names::read(*reader)) {
    for (const OvixAgent::PortConfig& port : config.ports) {
        names_.add(port.name);
        if (!port.isUp) {
            down_.insert(port.name);
        }
    }
}

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
