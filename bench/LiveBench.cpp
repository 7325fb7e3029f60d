// Live ports: frames per second and processor time of the agent on virtual links, beside the
// kernel's own IPv4 forwarding over the same links; and frames lost when labels are led another
// way. "nobody" sends as the others do, to where nobody forwards. The kernel forwards in the
// sender's time: what that costs is the difference of sender_ns/frame to nobody's.

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <stdexcept>
#include <unistd.h>

#include "Links.h"
#include "LiveNetwork.h"
#include "LivePassage.h"
#include "LiveRegistration.h"
#include "RerouteBench.h"
#include "TableSamples.h"

namespace {

using namespace std::chrono_literals;
using Bench::AgentProcess;
using Bench::FrameSender;
using Bench::LiveNetwork;
using Bench::Passage;
using TestSupport::Raw::Bytes;

constexpr std::uint32_t flows = 256;
constexpr std::uint64_t asManyAsCanBe = 0;
constexpr std::uint64_t bearable = 50'000;
constexpr auto measured = 300ms;

enum class Traffic { labelled, ipv4 };

/// Who forwards what.
struct Case {
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

std::string agentConfig(const Case& of) {
    constexpr const char* ports = R"(
ports:
  - name: {in}
    kind: {kind}
    mac: "02:00:00:00:00:{station:02x}"
    vrf: default
    addresses: [10.0.1.1/24]
  - name: {out}
    kind: {kind}
    mac: "02:00:00:00:00:78"
    vrf: default
    addresses: [10.0.2.1/24]
routes:
  - prefix: 10.9.0.0/16
    vias:
      - interface: {out}
        nexthop: {nexthop}
hardware:
  adjacencies:
    - id: 1
      vias:
        - interface: {out}
          nexthop: {nexthop}
          action: swap
          labels: [300]
  routes:
)";
    using namespace fmt::literals;
    std::string text = fmt::format(
        ports, "in"_a = of.hasTaps() ? "tap-in" : "in", "out"_a = of.hasTaps() ? "tap-out" : "out1",
        "kind"_a = of.router, "station"_a = of.station(), "nexthop"_a = LiveNetwork::firstNextHop);
    for (std::uint32_t i = 0; i < flows; ++i) {
        text += fmt::format("    - label: {}\n      adjacency: 1\n", Bench::firstLabel + i);
    }
    return text;
}

std::vector<Bytes> framesFor(const Case& of) {
    std::vector<Bytes> frames =
        of.traffic == Traffic::ipv4 ? Bench::ipv4Frames(flows) : Bench::labelledFrames(flows);
    for (Bytes& frame : frames) {
        frame[5] = of.station();
    }
    return frames;
}

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

void measure(benchmark::State& state, LiveNetwork& network, const Case& of,
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

void registerCase(LiveNetwork& network, const Case& of, std::uint64_t framesPerSecond) {
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
    Bench::registerRerouteBenchmarks(*network);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
