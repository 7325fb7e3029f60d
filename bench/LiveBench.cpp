// Live ports: frames per second and processor time of the agent on virtual links, beside the
// kernel's own IPv4 forwarding over the same links; and frames lost when labels are led another
// way; and how long one frame takes from the sender to the sink when nothing else is on its way.
// "nobody" sends as the others do, to where nobody forwards. The kernel forwards in the
// sender's time: what that costs is the difference of sender_ns/frame to nobody's.

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <unistd.h>

#include "LatencyBench.h"
#include "Links.h"
#include "LiveCase.h"
#include "LiveNetwork.h"
#include "LivePassage.h"
#include "LiveRegistration.h"
#include "RerouteBench.h"

namespace {

using namespace std::chrono_literals;
using Bench::AgentProcess;
using Bench::FrameSender;
using Bench::LiveCase;
using Bench::LiveNetwork;
using Bench::Passage;
using Bench::Traffic;

constexpr std::uint64_t asManyAsCanBe = 0;
constexpr std::uint64_t bearable = 50'000;
constexpr auto measured = 300ms;

void count(benchmark::State& state, const Passage& passage) {
    const auto received = static_cast<double>(passage.received);
    const auto sent = static_cast<double>(passage.sent);
    const auto perFrame = [](double seconds, double frames) {
        return frames > 0 ? 1e9 * seconds / frames : 0;
    };
    state.counters["frames/s"] = static_cast<double>(passage.receivedMeanwhile) / passage.seconds;
    state.counters["offered/s"] = sent / passage.seconds;
    state.counters["lost_%"] = 100 * (sent - received) / sent;
    state.counters["sender_ns/frame"] = perFrame(passage.senderSeconds, sent);
    state.counters["agent_ns/frame"] = perFrame(passage.agentSeconds, received);
    state.counters["elsewhere_%"] =
        100 * std::max(0.0, passage.machineSeconds - passage.senderSeconds - passage.agentSeconds) /
        (passage.allSeconds * static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN)));
    state.counters["machine_ns/frame"] = perFrame(passage.machineSeconds, received);
}

void measure(benchmark::State& state, LiveNetwork& network, const LiveCase& of,
             std::uint64_t framesPerSecond) {
    network.kernelForwardingIs(of.router == "kernel");
    const auto taps = of.hasTaps() ? std::make_unique<Bench::BridgedTaps>() : nullptr;
    const std::uint64_t receivedBefore = Bench::framesReceived(of.sink());
    FrameSender sender("gen", framesFor(of));
    const auto agent = of.isAgent() ? std::make_unique<AgentProcess>(agentConfig(of)) : nullptr;
    Bench::awaitPassage(sender, of.sink(), agent.get());
    for (auto _ : state) {
        const Passage passage =
            Bench::pass({&sender, of.sink(), agent.get(), measured, framesPerSecond});
        state.SetIterationTime(passage.seconds);
        count(state, passage);
    }
    if (agent) {
        Bench::stopAndCheck(*agent, sender.sent(),
                            Bench::framesReceived(of.sink()) - receivedBefore);
    }
}

void registerCase(LiveNetwork& network, const LiveCase& of, std::uint64_t framesPerSecond) {
    const std::string rate = framesPerSecond == asManyAsCanBe
                                 ? "/full"
                                 : "/" + std::to_string(framesPerSecond / 1000) + "k";
    Bench::registerLive(of.name() + rate, [&network, of, framesPerSecond](benchmark::State& state) {
        measure(state, network, of, framesPerSecond);
    })->Repetitions(3);
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    std::optional<LiveNetwork> network;
    try {
        if (const std::string unavailable = TestSupport::leaveNetwork(); !unavailable.empty()) {
            throw std::runtime_error(unavailable);
        }
        network.emplace();
    } catch (const std::runtime_error& unavailable) {
        std::fprintf(stderr, "live_bench: skipped: %s\n", unavailable.what());
        return 0;
    }
    registerCase(*network, {"nobody", Traffic::labelled}, asManyAsCanBe);
    registerCase(*network, {"nobody", Traffic::ipv4}, asManyAsCanBe);
    for (const std::uint64_t framesPerSecond : {asManyAsCanBe, bearable}) {
        registerCase(*network, {"kernel", Traffic::ipv4}, framesPerSecond);
        for (const char* kind : {"packet", "tap"}) {
            registerCase(*network, {kind, Traffic::ipv4}, framesPerSecond);
            registerCase(*network, {kind, Traffic::labelled}, framesPerSecond);
        }
        registerCase(*network, {"xdp", Traffic::labelled}, framesPerSecond);
    }
    Bench::registerLatencyBenchmarks(*network);
    Bench::registerRerouteBenchmarks(*network);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
