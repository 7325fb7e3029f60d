#include "TableChurn.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <latch>
#include <sys/eventfd.h>
#include <thread>
#include <vector>

#include "ChangingTables.h"
#include "FrameRing.h"
#include "MemoryWorker.h"
#include "Posix/FileDescriptor.h"
#include "Router.h"

namespace Bench {

namespace {

using std::chrono::nanoseconds;
using namespace std::chrono_literals;

constexpr nanoseconds betweenGenerations = 10ms;

/// A router whose tables somebody else changes.
class Churn {
  public:
    explicit Churn(std::uint32_t labels)
        : tables_(labels), ring_(tables_.scenario()),
          router_(tables_.scenario().config, tables_.reader()) {}

    /// Has nearly all labels decided.
    void warm() {
        const auto& slow = router_.fastPath().counts().slow;
        std::uint64_t before = 0;
        do {
            before = slow;
            for (int i = 0; i < 256; ++i) {
                forward();
            }
        } while (slow - before > FrameRing::frames);
    }
    /// Nanoseconds a frame in so much of the fast path's time.
    double run(nanoseconds length, bool changes) {
        nanoseconds total{0};
        nanoseconds next = betweenGenerations;
        std::uint64_t rounds = 0;
        for (; total < length; ++rounds) {
            if (changes && total >= next) {
                tables_.change();
                next += betweenGenerations;
            }
            total += forward();
        }
        return static_cast<double>(total.count()) / static_cast<double>(rounds * FrameRing::frames);
    }
    std::uint64_t slowFrames() { return router_.fastPath().counts().slow; }
    std::uint64_t frames() { return slowFrames() + router_.fastPath().counts().fast; }

  private:
    nanoseconds forward() {
        ring_.fill();
        const auto start = std::chrono::steady_clock::now();
        router_.tables().refresh();
        for (std::size_t i = 0; i < FrameRing::frames / OvixAgent::burstFrames; ++i) {
            router_.fastPath().receive(ring_.burst(i));
        }
        return std::chrono::steady_clock::now() - start;
    }

    ChangingTables tables_;
    FrameRing ring_;
    Router router_;
};

/// A worker that forwards by tables that somebody else changes, and the packet thread beside it.
class WorkerChurn {
  public:
    explicit WorkerChurn(std::uint32_t labels)
        : tables_(labels), router_(tables_.scenario().config, tables_.reader()),
          wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
          worker_(router_.fastPath().shared(), wake_.value(), tables_.scenario(),
                  router_.ports().ports().size()) {
        follow();
    }

    struct Rate {
        double byClock = 0;     ///< frames a second
        double byProcessor = 0; ///< in a second of the worker's processor time
    };
    Rate run(nanoseconds length, bool changes) {
        std::atomic<bool> ends{false};
        std::latch begun(1);
        std::thread thread([&] {
            begun.count_down();
            worker_.run(ends);
        });
        begun.wait();
        const auto start = std::chrono::steady_clock::now();
        auto next = start;
        while (next - start < length) {
            if (changes) {
                tables_.change();
                follow();
            }
            next += betweenGenerations;
            std::this_thread::sleep_until(next);
        }
        ends = true;
        const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
        thread.join();
        return {worker_.frames / passed.count(), worker_.frames / worker_.seconds};
    }

  private:
    /// As the packet thread does between its own frames.
    void follow() {
        router_.tables().refresh();
        while (router_.fastPath().decideAhead()) {
        }
    }

    ChangingTables tables_;
    Router router_;
    Posix::FileDescriptor wake_;
    MemoryWorker worker_;
};

} // namespace

void printWorkerChurn(std::uint32_t labels) {
    WorkerChurn churn(labels);
    constexpr int turns = 7;
    constexpr nanoseconds turn = 500ms;
    std::vector<double> byClock;
    std::vector<double> byProcessor;
    std::vector<double> stillRates;
    for (int i = 0; i < turns; ++i) {
        const WorkerChurn::Rate still = churn.run(turn, false);
        const WorkerChurn::Rate changing = churn.run(turn, true);
        stillRates.push_back(still.byProcessor);
        byClock.push_back(changing.byClock / still.byClock);
        byProcessor.push_back(changing.byProcessor / still.byProcessor);
    }
    std::printf(
        "%u labels, a worker beside the packet thread: %.2f million frames in a second of its "
        "processor time; with 100 generations a second that change %u of them: %.0f %% of "
        "that, %.0f %% by the clock\n",
        labels, medianOf(stillRates) / 1e6, ChangingTables::labelsAtOnce,
        100 * medianOf(byProcessor), 100 * medianOf(byClock));
}

void printTableChurn(std::uint32_t labels) {
    Churn churn(labels);
    churn.warm();
    constexpr int turns = 5;
    constexpr nanoseconds turn = 500ms;
    double still = 0;
    double changing = 0;
    std::uint64_t frames = 0;
    std::uint64_t slow = 0;
    for (int i = 0; i < turns; ++i) {
        still += churn.run(turn, false) / turns;
        const std::uint64_t framesBefore = churn.frames();
        const std::uint64_t slowBefore = churn.slowFrames();
        changing += churn.run(turn, true) / turns;
        frames += churn.frames() - framesBefore;
        slow += churn.slowFrames() - slowBefore;
    }
    std::printf("%u labels: %.1f ns a frame; with 100 generations a second that change %u of them: "
                "%.1f ns, %.2f times; by the forwarder: %.2f%%\n",
                labels, still, ChangingTables::labelsAtOnce, changing, changing / still,
                100.0 * static_cast<double>(slow) / static_cast<double>(frames));
}

} // namespace Bench
