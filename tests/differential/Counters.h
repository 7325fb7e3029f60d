#pragma once

#include "Forwarding/Forwarder.h"
#include "Recording.h"
#include "Tables/AgentState.h"

namespace Differential {

/// Everything that is counted, since the start: frames, fates and their reasons, ports,
/// pseudowires, labels, and named counters in the order of their first count.
void recordCounters(Recording& into, const OvixAgent::Forwarder& forwarder,
                    const OvixAgent::AgentState& state, Fault fault);

} // namespace Differential
