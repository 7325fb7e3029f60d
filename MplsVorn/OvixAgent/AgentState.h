#pragma once

#include <array>
#include <memory>
#include <string>

#include "ConfigTypes.h"
#include "Mpls/LfibWriter.h"
#include "Ovix/OvixPlugin.h"
#include "Tessel/EntityManager.h"

namespace OvixAgent {

/// A configuration as the state that plugins read: the state database, the shared tables and the
/// lists to hook into.
class AgentState {
  public:
    /// Publishes everything. `systemName` keeps apart the tables of agents in one process. Throws
    /// ConfigError, naming `file`, for what the tables refuse.
    AgentState(const AgentConfig& config, const std::string& file,
               const std::string& systemName = "ovix");
    ~AgentState();
    AgentState(const AgentState&) = delete;
    AgentState& operator=(const AgentState&) = delete;

    const Ptr<Ovix::PluginContext>& pluginContext() const noexcept { return context_; }
    const Ptr<Ovix::PluginManager>& manager() const noexcept { return context_->manager(); }
    Mpls::LfibWriter& lfib(LfibTable table) const noexcept {
        return *lfibs_[static_cast<std::size_t>(table)];
    }

  private:
    void publishState(const AgentConfig& config);
    void publishLfibs(const AgentConfig& config, const std::string& file);
    void publishMvpn(const AgentConfig& config);

    Ptr<Tessel::EntityManager> entities_;
    std::array<std::unique_ptr<Mpls::LfibWriter>, lfibTableNames.size()> lfibs_;
    Ptr<Ovix::PluginContext> context_;
};

/// The via record of a configured via.
Ovix::OvixMplsVia toViaRecord(const ViaConfig& via, const AgentConfig& config);

} // namespace OvixAgent
