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

/// The agent's side of what `ovixctl` asks of a running agent: "counters", "clear-counters" and
/// "status". Null when the run names neither tables nor a control socket. The state and the
/// forwarder must outlive it. Throws as ControlServer does.
/// `more` gives counters beside the forwarder's.
std::unique_ptr<ControlServer> serveControl(const RunOptions& options, AgentState& state,
                                            const Forwarder& forwarder,
                                            std::function<std::vector<NamedCounter>()> more = {});

} // namespace OvixAgent
