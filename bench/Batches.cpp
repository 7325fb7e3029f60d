#include "Batches.h"

#include <string>
#include <vector>

#include "Allocations.h"
#include "Lumo/Pkt.h"

namespace Bench {

namespace {

constexpr const char* outPerFrame = "out/frame";

/// Frames that were taken in and parsed, and the outputs that they shall fill.
class ParsedFrames {
  public:
    explicit ParsedFrames(std::size_t frames)
        : contexts_(frames), headers_(frames), outputs_(frames) {}

    void takeIn(const Scenario& scenario) {
        for (std::size_t i = 0; i < contexts_.size(); ++i, ++taken_) {
            const auto& frame = scenario.frames[taken_ % scenario.frames.size()];
            contexts_[i] = Tessel::make<Ovix::RoutingContext>(
                taken_, Tessel::make<Ovix::PacketContext>(packets_->newPkt(frame)), counters_);
            headers_[i] = contexts_[i]->packetContext()->parsedPkt().header(1);
            outputs_[i] = Tessel::make<Ovix::RoutingOutput>();
        }
    }
    void handTo(Ovix::RoutingHandler& handler) const {
        for (std::size_t i = 0; i < contexts_.size(); ++i) {
            handler.processPacket(outputs_[i], contexts_[i], headers_[i], root_);
        }
    }
    double nexthopsPerFrame() const {
        std::size_t nexthops = 0;
        for (const auto& output : outputs_) {
            nexthops += output->nexthops()->size();
        }
        return static_cast<double>(nexthops) / static_cast<double>(outputs_.size());
    }

  private:
    Ptr<Ovix::OvixNamedCounters> counters_ = Tessel::make<Ovix::OvixNamedCounters>();
    Ptr<Lumo::PktManager> packets_ = Lumo::globalPktManager();
    Ptr<Ovix::RoutingVrfRoot> root_ = Tessel::make<Ovix::RoutingVrfRoot>();
    std::vector<Ptr<Ovix::RoutingContext>> contexts_;
    std::vector<Ptr<Ovix::PacketHeader>> headers_;
    std::vector<Ptr<Ovix::RoutingOutput>> outputs_;
    std::size_t taken_ = 0;
};

void receive(Router& router, const Scenario& scenario, std::size_t number) {
    const auto& frame = scenario.frames[number % scenario.frames.size()];
    router.forwarder().receive(
        {scenario.port, {}, frame, static_cast<std::uint32_t>(frame.size())});
}

} // namespace

void countPer(benchmark::State& state, const char* unit, std::size_t perIteration,
              std::uint64_t allocations) {
    const auto items = state.iterations() * static_cast<std::int64_t>(perIteration);
    const auto total = static_cast<double>(items);
    state.SetItemsProcessed(items);
    state.counters[std::string("allocs/") + unit] = static_cast<double>(allocations) / total;
    state.counters[std::string("time/") + unit] = // printed with its unit: "66.4ns"
        benchmark::Counter(total, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

std::uint64_t runPlugin(benchmark::State& state, const Router& router, const Scenario& scenario,
                        std::size_t frames) {
    const auto handler = router.mplsHandler();
    ParsedFrames batch(frames);
    std::uint64_t allocated = 0;
    bool warm = false;
    for (auto _ : state) {
        state.PauseTiming();
        batch.takeIn(scenario);
        const std::uint64_t before = allocations();
        state.ResumeTiming();
        batch.handTo(*handler);
        state.PauseTiming();
        allocated += warm ? allocations() - before : 0;
        warm = true;
        state.ResumeTiming();
    }
    state.counters[outPerFrame] = batch.nexthopsPerFrame();
    return allocated;
}

std::uint64_t runRoad(benchmark::State& state, Router& router, const Scenario& scenario,
                      std::size_t frames) {
    for (std::size_t i = 0; i < scenario.frames.size(); ++i) {
        receive(router, scenario, i);
    }
    std::size_t sent = 0;
    const std::uint64_t outBefore = router.framesOut();
    const std::uint64_t before = allocations();
    for (auto _ : state) {
        for (std::size_t i = 0; i < frames; ++i, ++sent) {
            receive(router, scenario, sent);
        }
    }
    const std::uint64_t allocated = allocations() - before;
    state.counters[outPerFrame] =
        static_cast<double>(router.framesOut() - outBefore) / static_cast<double>(sent);
    return allocated;
}

} // namespace Bench
