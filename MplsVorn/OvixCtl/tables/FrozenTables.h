#pragma once

#include <string>

#include "Tables/TableReader.h"

namespace OvixCtl {

/// The newest generation of the tables that are published under a name, copied out: whatever is
/// read of it later, at any pace, is of that generation. Throws std::runtime_error when there are
/// no tables, CorruptionDetected when they cannot be right, and SnapshotLost when they kept
/// changing faster than they could be copied.
Ptr<Tessel::TableReader> freezeTables(const std::string& name);

/// The live tables, for reading.
Ptr<Tessel::TableReader> openTables(const std::string& name);

} // namespace OvixCtl
