#pragma once

#include "Command/CliOptions.h"

namespace OvixAgent {

/// Forwards on live ports until it is asked to end, and prints the balance. Returns the exit code;
/// throws what makes the run impossible.
int runLive(const RunOptions& options);

} // namespace OvixAgent
