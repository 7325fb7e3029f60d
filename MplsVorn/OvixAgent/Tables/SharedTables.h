#pragma once

#include <string>

#include "Tables/TableReader.h"

namespace OvixAgent {

/// Opens the label tables that are published under a name, for reading. When nobody has published
/// any yet, there are empty ones to wait at. Throws CorruptionDetected, std::system_error and
/// std::invalid_argument, each naming the tables.
Ptr<Tessel::TableReader> openSharedTables(const std::string& name);

} // namespace OvixAgent
