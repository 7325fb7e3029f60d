#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Config/Config.h"
#include "Ovix/plugin/OvixPlugin.h"
#include "Published/PublishedTables.h"
#include "Published/TablePublisher.h"
#include "State/EthIntfStatusDir.h"
#include "Tables/TablesWatch.h"
#include "Tessel/EntityManager.h"

namespace OvixAgent {

/// A configuration as the state that plugins read: the state database, the label tables and the
/// lists to hook into.
class AgentState {
  public:
    /// A state with the label tables of the configuration. `systemName` keeps apart the tables of
    /// agents in one process. What the tables refuse is refused naming `file` and the line.
    static Tessel::Result<std::unique_ptr<AgentState>>
    ofConfig(const AgentConfig& config, const std::string& file,
             const std::string& systemName = "ovix");
    /// The label tables are those that somebody else publishes.
    AgentState(const AgentConfig& config, Ptr<Tessel::TableReader> tables,
               const std::string& systemName = "ovix");
    ~AgentState();
    AgentState(const AgentState&) = delete;
    AgentState& operator=(const AgentState&) = delete;

    /// Writes another configuration's label tables beside its own ones; tables that somebody else
    /// publishes stay as they are. May be called by a thread beside the one that reads the tables.
    /// Nothing is left of it when it is refused.
    Tessel::Result<void> prepareTables(const AgentConfig& config, const std::string& file);
    /// Puts what was prepared last in the place of its own tables, all at once.
    void commitTables();

    /// The text of the configuration in force.
    const std::shared_ptr<const std::string>& configText() const noexcept { return configText_; }
    void configTextIs(std::shared_ptr<const std::string> text) { configText_ = std::move(text); }

    const Ptr<Ovix::PluginContext>& pluginContext() const noexcept { return context_; }
    const Ptr<Ovix::PluginManager>& manager() const noexcept { return context_->manager(); }
    const Ptr<Interface::EthIntfStatusDir>& interfaces() const noexcept { return interfaces_; }
    Mpls::PublishedTables& tables() noexcept { return published_; }
    const Mpls::PublishedTables& tables() const noexcept { return published_; }
    /// Of the file of tables that somebody else publishes; null when there is none.
    TablesWatch* tablesWatch() noexcept { return watch_ ? &*watch_ : nullptr; }
    const TablesWatch* tablesWatch() const noexcept { return watch_ ? &*watch_ : nullptr; }

  private:
    AgentState(const AgentConfig& config, std::unique_ptr<Mpls::TablePublisher> own,
               const std::string& systemName);
    void publishState(const AgentConfig& config);
    void publishTables();

    std::shared_ptr<const std::string> configText_;
    std::unique_ptr<Mpls::TablePublisher> own_;
    Ptr<Tessel::EntityManager> entities_;
    Mpls::PublishedTables published_;
    std::optional<TablesWatch> watch_;
    Ptr<Interface::EthIntfStatusDir> interfaces_ = Tessel::make<Interface::EthIntfStatusDir>();
    Ptr<Ovix::PluginContext> context_;
};

} // namespace OvixAgent
