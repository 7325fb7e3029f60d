#pragma once

#include "Command/CliOptions.h"

namespace OvixAgent {

/// The command `replay`: forwards the frames of a bundle, and prints what differs from what the
/// bundle says. Returns the exit code.
int runReplay(const ReplayOptions& options);

} // namespace OvixAgent
