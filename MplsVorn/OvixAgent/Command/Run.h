#pragma once

#include "Command/CliOptions.h"

namespace OvixAgent {

/// Forwards the captures as the options say and prints the balance. Returns the exit code; errors
/// are printed on standard error.
int run(const RunOptions& options);

} // namespace OvixAgent
