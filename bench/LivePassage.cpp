#include "LivePassage.h"

#include <ctime>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <unistd.h>

#include "LiveNetwork.h"

namespace Bench {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

namespace {

double ownSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/// In ticks of the clock, usually 10 ms, as proc(5) has it: user, nice, system, idle, waiting for
/// input or output, interrupts, soft interrupts. What a hypervisor gave to others is left out.
double machineSeconds() {
    std::ifstream file("/proc/stat");
    std::string name;
    double busy = 0;
    file >> name;
    for (int column = 0; column < 7; ++column) {
        double ticks = 0;
        file >> ticks;
        busy += column == 3 || column == 4 ? 0 : ticks;
    }
    return busy / static_cast<double>(sysconf(_SC_CLK_TCK));
}

/// How much processor time has been used up to now.
Passage timesUsed(const AgentProcess* agent) {
    Passage used;
    used.senderSeconds = ownSeconds();
    used.agentSeconds = agent != nullptr ? agent->cpuSeconds() : 0;
    used.machineSeconds = machineSeconds();
    return used;
}

} // namespace

std::uint64_t framesReceivedAtLast(const std::string& sink) {
    constexpr auto quiet = 60ms;
    std::uint64_t received = framesReceived(sink);
    for (auto since = Clock::now(); Clock::now() - since < quiet;) {
        std::this_thread::sleep_for(2ms);
        if (const std::uint64_t now = framesReceived(sink); now != received) {
            received = now;
            since = Clock::now();
        }
    }
    return received;
}

Passage pass(const PassagePlan& plan) {
    const std::uint64_t sentBefore = plan.sender->sent();
    const std::uint64_t receivedBefore = framesReceived(plan.sink);
    const Passage before = timesUsed(plan.agent);
    const auto start = Clock::now();
    if (plan.framesPerSecond == 0) {
        plan.sender->sendFor(plan.time);
    } else {
        plan.sender->sendFor(plan.time, plan.framesPerSecond);
    }
    Passage passage;
    passage.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    passage.receivedMeanwhile = framesReceived(plan.sink) - receivedBefore;
    passage.senderSeconds = ownSeconds() - before.senderSeconds;
    passage.received = framesReceivedAtLast(plan.sink) - receivedBefore;
    passage.allSeconds = std::chrono::duration<double>(Clock::now() - start).count();
    const Passage after = timesUsed(plan.agent);
    passage.sent = plan.sender->sent() - sentBefore;
    passage.agentSeconds = after.agentSeconds - before.agentSeconds;
    passage.machineSeconds = after.machineSeconds - before.machineSeconds;
    if (passage.received > passage.sent) {
        throw std::runtime_error("more frames were received than sent");
    }
    return passage;
}

void awaitPassage(FrameSender& sender, const std::string& sink, const AgentProcess* agent) {
    const std::uint64_t before = framesReceived(sink);
    const auto end = Clock::now() + 10s;
    while (framesReceived(sink) == before) {
        if (Clock::now() > end) {
            throw std::runtime_error("no frame comes through" +
                                     (agent != nullptr ? ": " + agent->complaints() : ""));
        }
        sender.send(1);
        std::this_thread::sleep_for(10ms);
    }
    framesReceivedAtLast(sink);
}

void stopAndCheck(AgentProcess& agent, std::uint64_t sent, std::uint64_t received) {
    const AgentBalance balance = agent.stop();
    const std::string counts = std::to_string(sent) + " sent, " + std::to_string(balance.in) +
                               " came in, " + std::to_string(balance.forwarded) + " forwarded, " +
                               std::to_string(received) + " received";
    if (!balance.balanced || balance.in > sent || balance.forwarded > balance.in ||
        received > balance.forwarded) {
        throw std::runtime_error("the frames do not add up: " + counts);
    }
}

} // namespace Bench
