#include "Tables/AgentState.h"

#include "Mpls/Hardware/Capability.h"
#include "Mpls/RoutingInfo.h"
#include "Tables/TableLoading.h"
#include "Tessel/EntityManager.h"

namespace OvixAgent {

Tessel::Result<std::unique_ptr<AgentState>> AgentState::ofConfig(const AgentConfig& config,
                                                                 const std::string& file,
                                                                 const std::string& systemName) {
    auto tables = std::make_unique<Mpls::TablePublisher>(Tessel::TableMemory::ofProcess());
    if (const auto loaded = loadTables(config, file, *tables); !loaded) {
        return loaded.refused();
    }
    tables->commit();
    return std::unique_ptr<AgentState>(new AgentState(config, std::move(tables), systemName));
}

AgentState::AgentState(const AgentConfig& config, std::unique_ptr<Mpls::TablePublisher> own,
                       const std::string& systemName)
    : AgentState(config, Tessel::make<Tessel::TableReader>("tables", own->tables().memory()),
                 systemName) {
    own_ = std::move(own);
}

AgentState::AgentState(const AgentConfig& config, Ptr<Tessel::TableReader> tables,
                       const std::string& systemName)
    : configText_(config.text), entities_(Tessel::make<Tessel::EntityManager>(systemName, true)),
      published_(std::move(tables)) {
    if (published_.tables().memory() != nullptr) {
        watch_.emplace(published_);
    }
    publishState(config);
    publishTables();
    auto manager = Tessel::make<Ovix::PluginManager>();
    manager->shmEntitySourceIs(
        Tessel::make<Ovix::ShmEntitySource>(Tessel::ShmEntityManager::ofSystem(systemName, true)));
    manager->packetHashers()->hasherIs(Ovix::PktHdrType::mpls, Tessel::make<Ovix::MplsHasher>());
    manager->routingCapabilities()->routingSupportedIs(true);
    context_ = Tessel::make<Ovix::PluginContext>(entities_, manager);
}

Tessel::Result<void> AgentState::prepareTables(const AgentConfig& config, const std::string& file) {
    if (!own_) {
        return {};
    }
    const Mpls::PublishedTables before(published_.tables().another());
    clearTables(before, *own_);
    Tessel::Result<void> loaded = loadTables(config, file, *own_);
    if (!loaded) {
        own_->discard();
    }
    return loaded;
}

void AgentState::commitTables() {
    if (own_) {
        own_->commit();
    }
}

// The tables are taken back, since their memory goes with this object.
AgentState::~AgentState() {
    const auto tables = Tessel::ShmEntityManager::ofSystem(entities_->systemName(), true);
    for (std::size_t i = 0; i < Mpls::lfibs; ++i) {
        tables->tableDel(Mpls::tableDirectory[i].path);
    }
    tables->tableDel(Routing::Multicast::MvpnIntfStatus::mountPath);
}

void AgentState::publishState(const AgentConfig& config) {
    auto routingInfo = Tessel::make<Mpls::RoutingInfo>();
    routingInfo->mplsRoutingEnabledIs(config.mplsRouting);
    entities_->entityIs("routing/mpls/routingInfo/status", routingInfo);
    entities_->entityIs("routing/hardware/mpls/capability",
                        Tessel::make<Mpls::Hardware::Capability>());
    entities_->entityIs("routing/hardware/mpls/status", published_.hardware());

    for (const PortConfig& port : config.ports) {
        interfaces_->intfStatusIs(Lumo::IntfId(port.name), port.isUp);
    }
    entities_->entityIs("interface/status/eth/intf", interfaces_);
}

void AgentState::publishTables() {
    const auto tables = Tessel::ShmEntityManager::ofSystem(entities_->systemName(), true);
    for (std::size_t i = 0; i < Mpls::lfibs; ++i) {
        tables->tableIs(Mpls::tableDirectory[i].path,
                        published_.lfib(static_cast<Mpls::TableId>(i)));
    }
    tables->tableIs(Routing::Multicast::MvpnIntfStatus::mountPath, published_.mvpn());
}

} // namespace OvixAgent
