#pragma once

#include <cstdint>
#include <string>

#include "commands/Command.h"
#include "tables/TableDiff.h"

namespace OvixCtl {

/// UTC with milliseconds, as in ISO 8601; from nanoseconds since 1970.
std::string timeText(std::uint64_t nanoseconds);

/// Prints one line on standard error, after the program's name.
void complain(const std::string& what);

/// The words of the command are wrong: complains, and returns the exit code for that.
int usageError(const Tessel::Refused& refused);

/// Prints what a change of the tables came to; as JSON {"tables", "generation", "added", "changed",
/// "removed"}.
void printCounts(const Request& request, std::uint64_t generation, const ChangeCounts& counts);

} // namespace OvixCtl
