#pragma once

#include <string>

#include "Config/ConfigTypes.h"
#include "Published/PublishedTables.h"
#include "Published/TablePublisher.h"

namespace OvixAgent {

/// Adds the label tables, the hardware status and the multicast VPNs' interfaces of a configuration
/// to tables, as part of a batch that the caller commits or discards.
/// Throws ConfigError, naming `file` and the line, for what the tables refuse.
void loadTables(const AgentConfig& config, const std::string& file, Mpls::TablePublisher& tables);

/// Removes all that loadTables() adds, as part of a batch; `published` reads the same tables.
void clearTables(const Mpls::PublishedTables& published, Mpls::TablePublisher& tables);

} // namespace OvixAgent
