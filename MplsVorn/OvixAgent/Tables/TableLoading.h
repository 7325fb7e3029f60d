#pragma once

#include <string>

#include "Config/ConfigTypes.h"
#include "Published/PublishedTables.h"
#include "Published/TablePublisher.h"

namespace OvixAgent {

/// Puts the label tables, the hardware status and the multicast VPNs' interfaces of a configuration
/// into tables, beside what they hold, as part of a batch that the caller commits or discards.
/// Throws ConfigError, naming `file` and the line, for what the tables refuse.
void loadTables(const AgentConfig& config, const std::string& file, Mpls::TablePublisher& tables);

/// Takes away all that loadTables puts there, as part of a batch; `published` reads the same
/// tables.
void clearTables(const Mpls::PublishedTables& published, Mpls::TablePublisher& tables);

/// One route of an LFIB, as part of a batch. Throws as the table's writer does.
void loadRoute(const LfibRouteConfig& route, const AgentConfig& config, Mpls::LfibWriter& lfib);

/// The via record of a configured via.
Ovix::OvixMplsVia toViaRecord(const ViaConfig& via, const AgentConfig& config);

} // namespace OvixAgent
