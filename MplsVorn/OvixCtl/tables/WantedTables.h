#pragma once

#include <string>

#include "Config/ConfigTypes.h"
#include "Published/InterfaceNames.h"
#include "Published/TablePublisher.h"
#include "tables/TableView.h"

namespace OvixCtl {

/// Reads a configuration; "-" is standard input. Throws ConfigError.
OvixAgent::AgentConfig readConfig(const std::string& file);

/// The tables as a configuration wants them, in memory of their own.
class WantedTables {
  public:
    /// Throws ConfigError, naming `file` and the line, for what shared tables would refuse.
    WantedTables(const OvixAgent::AgentConfig& config, const std::string& file);

    const TableView& view() const noexcept { return view_; }

  private:
    Mpls::TablePublisher publisher_;
    TableView view_;
};

} // namespace OvixCtl
