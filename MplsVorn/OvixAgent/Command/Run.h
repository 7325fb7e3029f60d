#pragma once

#include "Command/CliOptions.h"

namespace OvixAgent {

/// Runs the agent on captures or live and prints the summary. Returns the exit code; errors are
/// printed on standard error.
int run(const RunOptions& options);

} // namespace OvixAgent
