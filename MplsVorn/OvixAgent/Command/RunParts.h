#pragma once

#include <memory>

#include "Command/CliOptions.h"
#include "Config/ConfigTypes.h"
#include "Forwarding/Forwarder.h"
#include "Summary/Summary.h"
#include "Tables/AgentState.h"

namespace OvixAgent {

/// What both kinds of run begin with: the tables that the options name, and the plugin at work.
std::unique_ptr<AgentState> startAgent(const AgentConfig& config, const RunOptions& options);

/// What has become of the frames so far, and of the tables.
Summary summaryOf(const RunOptions& options, const AgentState& state, const Forwarder& forwarder);

/// Prints the summary, and its problems on standard error; returns the exit code. Throws
/// std::system_error when it cannot be printed.
int report(const RunOptions& options, const Summary& summary);

} // namespace OvixAgent
