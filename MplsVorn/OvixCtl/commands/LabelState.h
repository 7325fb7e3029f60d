#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "Published/InterfaceNames.h"
#include "Published/PublishedTables.h"
#include "commands/AgentAnswer.h"

namespace OvixCtl {

/// What the tables have for labels now: one reason is counted for a label that no table has, whose
/// route is not programmed, and whose ports are down.
class LabelState {
  public:
    /// Of the tables and the agent of a request. Unset where there are no such tables.
    static std::optional<LabelState> of(const Request& request);

    /// "no table has it", "not programmed", "no adjacency 7", "east is down"; empty when it has a
    /// way.
    std::string text(std::uint32_t label) const;

  private:
    LabelState(Ptr<Tessel::TableReader> reader, std::set<std::string> down);

    std::string ofAdjacency(std::uint64_t key) const;

    std::shared_ptr<const Mpls::PublishedTables> tables_;
    Interface::Names names_;
    std::set<std::string> down_; ///< ports
};

} // namespace OvixCtl
