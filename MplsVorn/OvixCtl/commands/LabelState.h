#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>

#include "Config/Config.h"
#include "Published/InterfaceNames.h"
#include "Published/PublishedTables.h"
#include "Published/TablePublisher.h"
#include "Tessel/Result.h"
#include "commands/AgentAnswer.h"

namespace OvixCtl {

/// What the tables have for labels now: one reason is counted for a label that no table has, whose
/// route is not programmed, and whose ports are down.
class LabelState {
  public:
    /// Of the tables that the running agent forwards by: shared ones, or those of its
    /// configuration. Refuses where it does not say, or they cannot be read.
    static Tessel::Result<LabelState> of(const Request& request);

    /// "no table has it", "not programmed", "no adjacency 7", "east is down"; empty when it has a
    /// way.
    std::string text(std::uint32_t label) const;

  private:
    LabelState(Ptr<Tessel::TableReader> reader, const OvixAgent::AgentConfig& config);

    std::string ofAdjacency(std::uint64_t key) const;

    std::shared_ptr<const Mpls::TablePublisher> configured_; ///< the tables, if they are not shared
    std::shared_ptr<const Mpls::PublishedTables> tables_;
    Interface::Names names_;
    std::set<std::string> down_; ///< ports
};

} // namespace OvixCtl
