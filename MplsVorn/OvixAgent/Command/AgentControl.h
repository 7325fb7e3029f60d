#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "Command/CliOptions.h"
#include "Control/ControlServer.h"
#include "Forwarding/Forwarder.h"
#include "Summary/Summary.h"
#include "Tables/AgentState.h"

namespace OvixAgent {

/// Serves the control commands "counters", "clear-counters" and "status". Null when the run has
/// neither shared tables nor a control socket. `more` returns counters beside the forwarder's. The
/// state and the forwarder must outlive the server. Throws as ControlServer does.
std::unique_ptr<ControlServer> serveControl(const RunOptions& options, AgentState& state,
                                            const Forwarder& forwarder,
                                            std::function<std::vector<NamedCounter>()> more = {});

} // namespace OvixAgent
