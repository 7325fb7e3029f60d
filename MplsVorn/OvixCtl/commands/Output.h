#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "commands/CtlOptions.h"
#include "tables/TableDiff.h"

namespace OvixCtl {

/// UTC with milliseconds, as in ISO 8601; from nanoseconds since 1970.
std::string timeText(std::uint64_t nanoseconds);

/// On one line. A name need not be UTF-8, but JSON is.
std::string jsonText(const nlohmann::ordered_json& json);

/// Prints one line of trouble on standard error, headed by the command's name.
void complain(const std::string& what);

/// Prints what a change of the tables came to: as JSON {"tables", "generation", "added", "changed",
/// "removed"}.
void printCounts(const CtlOptions& options, std::uint64_t generation, const ChangeCounts& counts);

} // namespace OvixCtl
