#pragma once

#include <string>

#include "Tables/TableReader.h"
#include "Tessel/Result.h"

namespace OvixCtl {

/// A copy of the newest generation of the tables that are published under a name. Refuses when
/// there are no tables; throws CorruptionDetected when their header is damaged, and SnapshotLost
/// when they kept changing faster than they could be copied.
Tessel::Result<Ptr<Tessel::TableReader>> freezeTables(const std::string& name);

/// The live tables, for reading. Refuses when there are none.
Tessel::Result<Ptr<Tessel::TableReader>> openTables(const std::string& name);

} // namespace OvixCtl
