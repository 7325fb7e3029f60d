#include "RerouteBench.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <functional>
#include <future>
#include <thread>

#include "BusyWriter.h"
#include "Links.h"
#include "LivePassage.h"
#include "LiveRegistration.h"
#include "Published/TransitRoutes.h"
#include "TableSamples.h"

namespace Bench {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::uint32_t labels = 10'000;
constexpr std::uint64_t framesPerSecond = 50'000;
constexpr std::uint32_t outLabel = 300;

std::vector<Mpls::WeightedRecord> firstWay() {
    return swapVia(outLabel, "out1", LiveNetwork::firstNextHop);
}
std::vector<Mpls::WeightedRecord> secondWay() {
    return swapVia(outLabel, "out2", LiveNetwork::secondNextHop);
}

std::string agentConfig(const std::string& kind) {
    std::string text = "ports:\n";
    for (const char* port : {"in", "out1", "out2"}) {
        text += std::string("  - {name: ") + port + ", kind: " + kind + "}\n";
    }
    return text;
}

/// Shared tables in which all the labels lead out by the first way, as long as this lives.
class Labels {
  public:
    Labels()
        : name_(benchTables("reroute")), tables_(Tessel::TableMemory::sharedForWriting(name_)) {
        for (const char* port : {"out1", "out2"}) {
            tables_.interfaces().intfId(port);
        }
        leadBy(firstWay());
    }
    ~Labels() { Tessel::TableMemory::remove(name_); }
    Labels(const Labels&) = delete;
    Labels& operator=(const Labels&) = delete;

    const std::string& name() const noexcept { return name_; }

    /// In one batch.
    void leadBy(const std::vector<Mpls::WeightedRecord>& vias) {
        Mpls::LabelRoute route;
        for (const Mpls::WeightedRecord& via : vias) {
            route.vias.push_back({Mpls::Via::fromRecord(via.via).value(), via.weight});
        }
        for (std::uint32_t i = 0; i < labels; ++i) {
            route.label = Lumo::MplsLabel(firstLabel + i);
            if (const auto done = Mpls::transitRouteIs(tables_, route); !done) {
                throw std::runtime_error(done.refused().what);
            }
        }
        tables_.commit();
    }
    /// The second way becomes the backup of the first.
    void backUp() {
        const auto adjacency = Mpls::Hardware::Adjacency::create(firstWay(), secondWay(), false);
        for (std::uint32_t i = 0; i < labels; ++i) {
            tables_.hardware().adjacencyIs(firstLabel + i, *adjacency);
        }
        tables_.commit();
    }

  private:
    std::string name_;
    Mpls::TablePublisher tables_;
};

/// How far the frames have come at one time.
struct Moment {
    Clock::time_point at;
    std::uint64_t byFirst;
    std::uint64_t bySecond;
};

Moment momentNow() {
    return {Clock::now(), framesReceived("sink1"), framesReceived("sink2")};
}

/// What frames of all labels have met with, some 200 us apart, while something
/// happened.
struct Course {
    std::vector<Moment> moments;
    Moment started{};  ///< just before it happened
    Moment happened{}; ///< just after
    Moment ended{};    ///< when the last frame had arrived
    std::uint64_t sent = 0;

    std::uint64_t received() const {
        return ended.byFirst - moments.front().byFirst + ended.bySecond - moments.front().bySecond;
    }
    /// The first moment that saw as many frames by the first way as there ever were.
    Clock::time_point lastByFirst() const {
        return std::find_if(moments.begin(), moments.end(),
                            [&](const Moment& one) { return one.byFirst == ended.byFirst; })
            ->at;
    }
    Clock::time_point firstBySecond() const {
        return std::find_if(
                   moments.begin(), moments.end(),
                   [&](const Moment& one) { return one.bySecond > moments.front().bySecond; })
            ->at;
    }
};

Course runCourse(FrameSender& sender, const std::function<void()>& event) {
    Course course;
    course.moments.reserve(10'000);
    course.moments.push_back(momentNow());
    const std::uint64_t before = sender.sent();
    auto sending = std::async(std::launch::async, [&] {
        sender.sendFor(300ms, framesPerSecond, [&] { course.moments.push_back(momentNow()); });
    });
    std::this_thread::sleep_for(100ms);
    course.started = momentNow();
    event();
    course.happened = momentNow();
    sending.get();
    framesReceivedAtLast("sink1");
    framesReceivedAtLast("sink2");
    course.ended = momentNow();
    course.moments.push_back(course.ended);
    course.sent = sender.sent() - before;
    return course;
}

double milliseconds(Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

void count(benchmark::State& state, const Course& course) {
    const auto lost = static_cast<double>(course.sent) - static_cast<double>(course.received());
    state.SetIterationTime(1e-3 * milliseconds(course.happened.at - course.started.at));
    state.counters["sent"] = static_cast<double>(course.sent);
    state.counters["lost"] = lost;
    state.counters["lost_ms"] = 1e3 * lost / static_cast<double>(framesPerSecond);
    if (course.ended.bySecond > course.moments.front().bySecond) {
        state.counters["late"] =
            static_cast<double>(course.ended.byFirst - course.happened.byFirst);
        state.counters["first_new_ms"] = milliseconds(course.firstBySecond() - course.started.at);
        state.counters["last_old_ms"] = milliseconds(course.lastByFirst() - course.started.at);
    }
}

/// What happens to the labels; nothing shows what is lost at this rate anyway.
enum class Event { nothing, reroute, linkCut };

void measure(benchmark::State& state, LiveNetwork& network, const std::string& kind, Event event) {
    network.kernelForwardingIs(false);
    Labels tables;
    if (event == Event::linkCut) {
        tables.backUp();
    }
    const Moment before = momentNow();
    FrameSender sender("gen", labelledFrames(labels));
    AgentProcess agent(agentConfig(kind), tables.name());
    awaitPassage(sender, "sink1", &agent);
    const auto happen = [&] {
        if (event == Event::reroute) {
            tables.leadBy(secondWay());
        } else if (event == Event::linkCut) {
            network.upIs("sink1", false);
        }
    };
    Course course;
    for (auto _ : state) {
        course = runCourse(sender, happen);
        count(state, course);
    }
    if (event == Event::linkCut) {
        network.upIs("sink1", true);
        TestSupport::awaitOperation("out1");
    }
    stopAndCheck(agent, sender.sent(),
                 course.ended.byFirst - before.byFirst + course.ended.bySecond - before.bySecond);
}

void registerEvent(LiveNetwork& network, const std::string& kind, const std::string& name,
                   Event event) {
    const auto most = [](const std::vector<double>& values) {
        return *std::max_element(values.begin(), values.end());
    };
    registerLive(
        "live/" + kind + "/10k_labels/" + name,
        [&network, kind, event](benchmark::State& state) { measure(state, network, kind, event); })
        ->Repetitions(5)
        ->ComputeStatistics("max", most);
}

} // namespace

void registerRerouteBenchmarks(LiveNetwork& network) {
    registerEvent(network, "packet", "nothing_happens", Event::nothing);
    for (const char* kind : {"packet", "xdp"}) {
        registerEvent(network, kind, "reroute", Event::reroute);
        registerEvent(network, kind, "link_cut", Event::linkCut);
    }
}

} // namespace Bench
