#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "FrameBytes.h"
#include "LiveNetwork.h"

namespace Bench {

enum class Traffic { labelled, ipv4 };

/// Who forwards what.
struct LiveCase {
    std::string router; ///< "nobody", "kernel", or the kind of the agent's ports
    Traffic traffic;

    bool isAgent() const { return router != "nobody" && router != "kernel"; }
    bool hasTaps() const { return router == "tap"; }
    /// The last byte of the station that the frames are sent to.
    std::uint8_t station() const { return hasTaps() ? Bench::BridgedTaps::station : 1; }
    std::string sink() const { return router == "nobody" ? "in" : "sink1"; }
    std::string name() const {
        return "live/" + router + (traffic == Traffic::ipv4 ? "/ipv4" : "/swap");
    }
};

/// For the agent as the router of the case, with routes for all its frames.
std::string agentConfig(const LiveCase& of);
/// One of each flow.
std::vector<TestSupport::Raw::Bytes> framesFor(const LiveCase& of);

} // namespace Bench
