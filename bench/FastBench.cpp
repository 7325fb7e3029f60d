// Measures the whole road of one kind of traffic, in bursts, one frame at a time and by the
// definition alone, beside a bare loop: fast_bench time|instructions SCENARIO LABELS-OR-PREFIXES;
// or what changes of the tables cost: fast_bench churn LABELS; or what the recorder and traces of
// other frames cost: fast_bench overheads SCENARIO LABELS-OR-PREFIXES; or what workers forward:
// fast_bench workers LABELS
//
// time prints a line of tab-separated fields; instructions is to be run under callgrind with
// --instr-atstart=no, and dumps its counts for one number of frames and for twice as many.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <exception>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <valgrind/callgrind.h>

#include "Allocations.h"
#include "BareLoop.h"
#include "EdgeScenarios.h"
#include "FrameRing.h"
#include "Router.h"
#include "TableChurn.h"
#include "WorkersBench.h"

namespace {

using Bench::FrameRing;
using Bench::Router;
using Bench::Scenario;
using OvixAgent::WritableFrame;

/// The last ones are bursts while nothing is recorded, and while frames that do not come are
/// traced.
enum Way : std::size_t { bare, burst, single, definition, unrecorded, byLabel, byPrefix, byReason };
constexpr std::size_t ways = 8;
constexpr std::array<const char*, ways> wayNames{
    "bare", "burst", "single", "definition", "unrecorded", "by-label", "by-prefix", "by-reason"};

Scenario scenarioOf(const std::string& name, std::uint32_t routes, std::size_t frames) {
    const bool isEdge = name == "pop_route" || name == "ip_push";
    return isEdge ? Bench::makeEdgeScenario(name, routes, frames)
                  : Bench::makeScenario(name, routes, frames);
}

bool hasLabelPerRoute(const std::string& name) {
    return name != "pop_route" && name != "ip_push" && name != "flood";
}

/// What is traced while frames take one of the last ways.
OvixAgent::TraceFilter filterOf(Way way) {
    OvixAgent::TraceFilter filter;
    if (way == byLabel) {
        filter.label = Lumo::MplsLabel::max;
    } else if (way == byPrefix) {
        filter.prefix = Lumo::IpGenPrefix::of(Lumo::IpGenAddr::fromText("203.0.113.0"), 24);
    } else {
        filter.reason = "MTU exceeded";
    }
    filter.time = std::chrono::hours(24);
    return filter;
}

/// The ways of the frames of a scenario. The bare loop has an entry for each label or prefix, and
/// labelled frames of its own where the traffic has other ones, or none.
class Ways {
  public:
    Ways(const std::string& name, std::uint32_t routes, std::size_t frames)
        : scenario_(scenarioOf(name, routes, frames)),
          bareScenario_(hasLabelPerRoute(name) ? Scenario{}
                                               : Bench::makeScenario("swap", routes, frames)),
          router_(scenario_.config), ring_(scenario_),
          bareRing_(hasLabelPerRoute(name) ? scenario_ : bareScenario_), bareLoop_(routes),
          leaves_(name != "flood"), trace_(router_.ports()) {
        router_.fastPath().traceIs(trace_);
    }

    /// What is made with the first frames of each label or prefix is made. Decisions are made bit
    /// by bit, so that the frames pass until no more of them become fast.
    void warm() {
        const auto& slow = router_.fastPath().counts().slow;
        std::uint64_t before = 0;
        std::uint64_t last = 0;
        do {
            last = slow - before;
            before = slow;
            for (std::size_t done = 0; done < scenario_.frames.size(); done += FrameRing::frames) {
                run(burst);
            }
        } while (slow - before > 0 && (last == 0 || slow - before < last));
        for (const Way way : {single, definition, bare}) {
            run(way);
        }
        if (leaves_ && router_.framesOut() == 0) {
            throw std::logic_error("no frame leaves");
        }
    }
    /// Fills the ring, which is not measured, and has all its frames forwarded.
    std::chrono::nanoseconds run(Way way) {
        if (way != way_) {
            enter(way);
        }
        (way == bare ? bareRing_ : ring_).fill();
        const auto start = std::chrono::steady_clock::now();
        CALLGRIND_TOGGLE_COLLECT;
        forward(way);
        CALLGRIND_TOGGLE_COLLECT;
        const auto time = std::chrono::steady_clock::now() - start;
        if (trace_.frames() > 0) {
            throw std::logic_error("a frame is traced that was not asked for");
        }
        return time;
    }
    Router& router() noexcept { return router_; }
    const Scenario& scenario() const noexcept { return scenario_; }

  private:
    /// What is done once when recording or tracing changes is done.
    void enter(Way way) {
        way_ = way;
        trace_.stop();
        router_.forwarder().accounts().recorder().isPausedIs(way == unrecorded);
        if (way > unrecorded) {
            trace_.start(filterOf(way));
        }
        (way == bare ? bareRing_ : ring_).fill();
        forward(way);
    }
    void forward(Way way) {
        OvixAgent::FastPath& fastPath = router_.fastPath();
        switch (way) {
        case bare:
            for (std::size_t i = 0; i < FrameRing::frames / OvixAgent::burstFrames; ++i) {
                bareLoop_.forward(bareRing_.burst(i));
            }
            break;
        case burst:
        case unrecorded:
        case byLabel:
        case byPrefix:
        case byReason:
            for (std::size_t i = 0; i < FrameRing::frames / OvixAgent::burstFrames; ++i) {
                fastPath.receive(ring_.burst(i));
            }
            break;
        case single:
            for (WritableFrame& frame : ring_.all()) {
                fastPath.receive({&frame, 1});
            }
            break;
        case definition:
            for (const WritableFrame& frame : ring_.all()) {
                router_.forwarder().receive(frame.frame());
            }
            break;
        }
    }

    Scenario scenario_;
    Scenario bareScenario_;
    Router router_;
    FrameRing ring_;
    FrameRing bareRing_;
    Bench::BareLoop bareLoop_;
    bool leaves_;
    OvixAgent::LiveTrace trace_;
    Way way_ = bare;
};

/// Nanoseconds a frame.
double timeOf(Ways& all, Way way, std::size_t rounds) {
    std::chrono::nanoseconds total{0};
    for (std::size_t i = 0; i < rounds; ++i) {
        total += all.run(way);
    }
    return static_cast<double>(total.count()) / static_cast<double>(rounds * FrameRing::frames);
}

double medianOf(std::vector<double> values) {
    std::nth_element(values.begin(),
                     values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

/// The times of each way, run for run.
using Times = std::array<std::vector<double>, ways>;

/// Each way is run once in each of so many rounds, in another order each time.
constexpr std::size_t repetitions = 9;

Times timesOf(Ways& all) {
    Times times;
    std::array order{bare, burst, single, definition};
    std::mt19937 random(1);
    for (std::size_t i = 0; i < repetitions; ++i) {
        std::shuffle(order.begin(), order.end(), random);
        for (const Way way : order) {
            constexpr std::size_t rounds = 40;
            times[way].push_back(timeOf(all, way, way == definition ? rounds / 10 : rounds));
        }
    }
    return times;
}

double medianRatio(const Times& times, Way way) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < repetitions; ++i) {
        ratios.push_back(times[way][i] / times[bare][i]);
    }
    return medianOf(ratios);
}

void printTime(Ways& all) {
    const auto& counts = all.router().fastPath().counts();
    const std::uint64_t fast = counts.fast;
    const std::uint64_t slow = counts.slow;
    const std::uint64_t before = Bench::allocations();
    std::uint64_t frames = 0;
    for (const Way way : {burst, single}) {
        for (int i = 0; i < 4; ++i) {
            all.run(way);
            frames += FrameRing::frames;
        }
    }
    const double allocated = static_cast<double>(Bench::allocations() - before);
    const double fastShare = static_cast<double>(counts.fast - fast) /
                             static_cast<double>(counts.fast - fast + counts.slow - slow);
    const Times times = timesOf(all);
    const double legs = all.scenario().copies; // the bare loop has one
    std::printf("%.1f\t", medianOf(times[bare]));
    for (const Way way : {burst, single, definition}) {
        std::printf("%.1f\t", medianOf(times[way]) / legs);
    }
    std::printf("%.2f\t%.2f\t%.4f\t%.1f\n", medianRatio(times, burst) / legs,
                medianRatio(times, single) / legs, allocated / static_cast<double>(frames),
                100 * fastShare);
}

/// Nanoseconds a frame in bursts without any of it, and what each takes more: the least of many
/// short turns, since differences are small beside what else runs on the machine.
void printOverheads(Ways& all) {
    constexpr int turns = 500;
    std::array order{burst, unrecorded, byLabel, byPrefix, byReason};
    std::array<double, ways> least;
    least.fill(std::numeric_limits<double>::max());
    std::mt19937 random(1);
    for (int i = 0; i < turns; ++i) {
        std::shuffle(order.begin(), order.end(), random);
        for (const Way way : order) {
            least[way] = std::min(least[way], timeOf(all, way, 1));
        }
    }
    std::printf("%.1f", least[unrecorded]);
    for (const Way way : {burst, byLabel, byPrefix, byReason}) {
        const double without = least[way == burst ? unrecorded : burst];
        std::printf("\t%s %+.1f ns %+.1f %%", way == burst ? "recorder" : wayNames[way],
                    least[way] - without, 100 * (least[way] / without - 1));
    }
    std::printf("\n");
}

void dumpInstructions(Ways& all) {
    CALLGRIND_START_INSTRUMENTATION;
    for (const Way way : {burst, single, definition, unrecorded, byLabel, byPrefix, byReason}) {
        for (const std::size_t rounds : {1U, 2U}) {
            CALLGRIND_ZERO_STATS;
            for (std::size_t i = 0; i < rounds; ++i) {
                all.run(way);
            }
            const std::string name =
                std::string(wayNames[way]) + " " +
                std::to_string(rounds * FrameRing::frames * all.scenario().copies);
            CALLGRIND_DUMP_STATS_AT(name.c_str());
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    const bool isChurn = what == "churn" && argc == 3;
    const bool isWorkers = what == "workers" && argc == 3;
    const bool isOfFrames = what == "time" || what == "instructions" || what == "overheads";
    if (!isChurn && !isWorkers && (!isOfFrames || argc != 4)) {
        std::fputs("usage: fast_bench time|instructions|overheads SCENARIO LABELS-OR-PREFIXES\n"
                   "       fast_bench churn|workers LABELS\n",
                   stderr);
        return 2;
    }
    try {
        if (isChurn || isWorkers) {
            const auto labels = static_cast<std::uint32_t>(std::stoul(argv[2]));
            if (isWorkers) {
                Bench::printWorkers(labels);
            } else {
                Bench::printTableChurn(labels);
                Bench::printWorkerChurn(labels);
            }
            return 0;
        }
        const auto routes = static_cast<std::uint32_t>(std::stoul(argv[3]));
        constexpr std::size_t mostFrames = 1U << 20U;
        // Instructions do not depend on how much memory the labels met take.
        const std::size_t frames = what != "instructions"
                                       ? std::clamp<std::size_t>(std::size_t{4} * routes,
                                                                 Bench::scenarioFrames, mostFrames)
                                       : Bench::scenarioFrames;
        Ways all(argv[2], routes, frames);
        all.warm();
        if (what == "time") {
            printTime(all);
        } else if (what == "overheads") {
            printOverheads(all);
        } else {
            dumpInstructions(all);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "fast_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
