#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "AgentProcess.h"
#include "FrameSender.h"

namespace Bench {

/// What came of frames that were sent toward a router for a while.
struct Passage {
    double seconds = 0;    ///< that were spent sending
    double allSeconds = 0; ///< until the last had been received, too
    std::uint64_t sent = 0;
    std::uint64_t received = 0;          ///< at the sink
    std::uint64_t receivedMeanwhile = 0; ///< of these, before the last was sent
    double senderSeconds = 0;            ///< of processor time of this process, and what the
                                         ///< kernel did with the frames while it had it
    double agentSeconds = 0;             ///< likewise of the agent, if there is one
    double machineSeconds = 0;           ///< of all processes and of the kernel
};

/// How many frames go through, and by whom.
struct PassagePlan {
    FrameSender* sender;
    std::string sink;
    const AgentProcess* agent = nullptr; ///< null: another router, or none
    std::chrono::milliseconds time{0};
    std::uint64_t framesPerSecond = 0; ///< 0: as many as the sender can
};

/// Throws std::runtime_error.
Passage pass(const PassagePlan& plan);

/// Sends frames one by one until one comes to the sink. Throws std::runtime_error when none does.
void awaitPassage(FrameSender& sender, const std::string& sink, const AgentProcess* agent);

/// Waits until nothing more comes to the sink, and returns how many frames it has received, ever.
std::uint64_t framesReceivedAtLast(const std::string& sink);

/// Throws std::runtime_error when what the agent says when it is stopped cannot be, `sent` frames
/// having been sent to it, and so many of them having come out behind it.
void stopAndCheck(AgentProcess& agent, std::uint64_t sent, std::uint64_t received);

} // namespace Bench
