#include "tables/WantedTables.h"

#include <fmt/format.h>
#include <iostream>
#include <iterator>

#include "Config/Config.h"
#include "Tables/TableLoading.h"

namespace OvixCtl {

using OvixAgent::AgentConfig;

namespace {

/// Deeper stacks are kept in a store of the process that reads them.
constexpr std::size_t deepestShared = 33;

void checkDepth(const OvixAgent::ViaList& vias, const std::string& file, std::size_t line,
                const std::string& what) {
    for (const OvixAgent::ViaConfig& via : vias) {
        if (via.labels.size() > deepestShared) {
            throw OvixAgent::ConfigError(
                fmt::format("{}:{}: {}: a stack of {} labels cannot be shared, {} at most", file,
                            line, what, via.labels.size(), deepestShared));
        }
    }
}

void checkShareable(const AgentConfig& config, const std::string& file) {
    for (std::size_t i = 0; i < config.lfib.tables.size(); ++i) {
        for (const auto& route : config.lfib.tables[i]) {
            checkDepth(route.vias, file, route.line,
                       fmt::format("lfib.{}: label {}", OvixAgent::lfibTableNames[i], route.label));
        }
    }
    for (const auto& adjacency : config.hardware.adjacencies) {
        const std::string what = fmt::format("hardware: adjacency {}", adjacency.id);
        checkDepth(adjacency.vias, file, adjacency.line, what);
        checkDepth(adjacency.backups, file, adjacency.line, what);
    }
}

Ptr<Tessel::TableReader> load(Mpls::TablePublisher& publisher, const AgentConfig& config,
                              const std::string& file) {
    checkShareable(config, file);
    OvixAgent::loadTables(config, file, publisher);
    publisher.commit();
    return Tessel::make<Tessel::TableReader>(file, publisher.tables().memory());
}

} // namespace

AgentConfig readConfig(const std::string& file) {
    if (file != "-") {
        return OvixAgent::loadConfig(file);
    }
    const std::string text{std::istreambuf_iterator<char>(std::cin), {}};
    return OvixAgent::parseConfig(text, "standard input");
}

WantedTables::WantedTables(const AgentConfig& config, const std::string& file)
    : publisher_(Tessel::TableMemory::ofProcess()), view_(load(publisher_, config, file)) {}

} // namespace OvixCtl
