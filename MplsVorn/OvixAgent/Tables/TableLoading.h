#pragma once

#include <string>

#include "Config/Config.h"
#include "Published/PublishedTables.h"
#include "Published/TablePublisher.h"
#include "Tables/TableReader.h"
#include "Tessel/Result.h"

namespace OvixAgent {

/// Adds the label tables, the hardware status and the multicast VPNs' interfaces of a configuration
/// to tables, as part of a batch that the caller commits or discards.
/// What the tables refuse is refused naming `file` and the line.
Tessel::Result<void> loadTables(const AgentConfig& config, const std::string& file,
                                Mpls::TablePublisher& tables);

/// Removes all that loadTables() adds, as part of a batch; `published` reads the same tables.
void clearTables(const Mpls::PublishedTables& published, Mpls::TablePublisher& tables);

/// Opens the label tables that are published under a name, for reading. When nobody has published
/// any yet, they are refused, or, with `create`, there are empty ones to wait at. Throws
/// CorruptionDetected, std::system_error and std::invalid_argument, each naming the tables.
Tessel::Result<Ptr<Tessel::TableReader>> openSharedTables(const std::string& name, bool create);

} // namespace OvixAgent
