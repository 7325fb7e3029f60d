#pragma once

#include <memory>

#include "Command/CliOptions.h"
#include "Config/ConfigTypes.h"
#include "Forwarding/Forwarder.h"
#include "Summary/Summary.h"
#include "Tables/AgentState.h"

namespace OvixAgent {

/// Opens the tables that the options name and starts the plugin.
std::unique_ptr<AgentState> startAgent(const AgentConfig& config, const RunOptions& options);

/// The summary of a run so far, of frames and tables.
Summary summaryOf(const RunOptions& options, const AgentState& state, const Forwarder& forwarder);

/// Prints the summary, and its problems on standard error; returns the exit code. Throws
/// std::system_error when printing fails.
int report(const RunOptions& options, const Summary& summary);

} // namespace OvixAgent
