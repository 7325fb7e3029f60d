#include "WorkersBench.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <sys/eventfd.h>
#include <thread>
#include <utility>
#include <vector>

#include "FrameRing.h"
#include "Live/workers/Worker.h"
#include "Posix/FileDescriptor.h"
#include "Router.h"

namespace Bench {

namespace {

using OvixAgent::WritableFrame;

/// A worker's queue in memory: hands out the same frames again and again, as they were at first,
/// and keeps nothing of what leaves.
class MemoryQueue : public OvixAgent::LivePort {
  public:
    explicit MemoryQueue(const Scenario& scenario) : ring_(scenario) {
        ring_.fill();
        for (const WritableFrame& frame : ring_.all()) {
            std::copy_n(frame.bytes, changed, starts_.emplace_back().begin());
        }
    }

    const std::string& name() const noexcept override { return none_; }
    bool isOpen() const noexcept override { return true; }
    bool reopen() override { return true; }
    const std::string& problem() const noexcept override { return none_; }
    int descriptor() const noexcept override { return -1; }
    std::size_t receive(const OvixAgent::BurstVisitor& visitor, std::size_t) override {
        const std::size_t first = next_ * OvixAgent::burstFrames;
        const std::span<WritableFrame> burst = ring_.burst(next_);
        next_ = (next_ + 1) % (FrameRing::frames / OvixAgent::burstFrames);
        for (std::size_t i = 0; i < burst.size(); ++i) {
            std::copy_n(starts_[first + i].begin(), changed, burst[i].bytes);
        }
        visitor(burst);
        return burst.size();
    }
    void transmit(const OvixAgent::Frame&) override { ++sent_; }
    void transmitBurst(std::span<const OvixAgent::Frame> frames) override {
        sent_ += frames.size();
    }
    void flush() override {}
    const OvixAgent::LiveCounts& counts() override { return counts_; }
    std::uint64_t sent() const noexcept { return sent_; }

  private:
    /// Bytes of a frame that a swap changes.
    static constexpr std::size_t changed = 18;

    FrameRing ring_;
    std::vector<std::array<std::uint8_t, changed>> starts_;
    std::size_t next_ = 0;
    std::uint64_t sent_ = 0;
    std::string none_;
    OvixAgent::LiveCounts counts_;
};

double secondsOfThread() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

struct Rate {
    double byClock = 0;     ///< frames a second, of all workers
    double byProcessor = 0; ///< of a second of processor time, of all workers
};

/// One worker with its queue, and what it has done.
struct Forwarding {
    Forwarding(OvixAgent::DecidedTables& decided, int wake, const Scenario& scenario,
               std::size_t ports)
        : worker(decided, wake) {
        auto made = std::make_unique<MemoryQueue>(scenario);
        queue = made.get();
        worker.ports().push_back(std::move(made));
        for (OvixAgent::PortIndex i = 0; i < ports; ++i) {
            worker.portIs(i, *queue);
        }
    }
    void run(const std::atomic<bool>& ends) {
        const std::uint64_t before = queue->sent();
        const double start = secondsOfThread();
        while (!ends) {
            worker.turn();
        }
        seconds = secondsOfThread() - start;
        frames = static_cast<double>(queue->sent() - before);
    }

    OvixAgent::Worker worker;
    MemoryQueue* queue = nullptr;
    double seconds = 0;
    double frames = 0;
};

Rate measure(std::span<const std::unique_ptr<Forwarding>> all) {
    constexpr std::chrono::milliseconds time{500};
    std::atomic<bool> ends{false};
    std::vector<std::thread> threads;
    const auto start = std::chrono::steady_clock::now();
    for (const auto& one : all) {
        threads.emplace_back([&] { one->run(ends); });
    }
    std::this_thread::sleep_for(time);
    ends = true;
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    Rate rate;
    for (std::size_t i = 0; i < threads.size(); ++i) {
        threads[i].join();
        rate.byClock += all[i]->frames / passed.count();
        rate.byProcessor += all[i]->frames / all[i]->seconds;
    }
    return rate;
}

double medianOf(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace

void printWorkers(std::uint32_t labels) {
    constexpr std::size_t most = 2;
    constexpr std::size_t rounds = 7;
    const Scenario scenario = makeScenario("swap", labels, FrameRing::frames);
    Router router(scenario.config);
    const Posix::FileDescriptor wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    std::vector<std::unique_ptr<Forwarding>> all;
    for (std::size_t i = 0; i < most; ++i) {
        all.push_back(std::make_unique<Forwarding>(router.fastPath().shared(), wake.value(),
                                                   scenario, router.ports().ports().size()));
    }
    while (router.fastPath().decideAhead([] {})) {
    }
    std::vector<Rate> one;
    std::vector<Rate> two;
    for (std::size_t i = 0; i < rounds; ++i) {
        one.push_back(measure(std::span(all).first(1)));
        two.push_back(measure(all));
    }
    const auto median = [](const std::vector<Rate>& rates, double Rate::*of) {
        std::vector<double> values;
        for (const Rate& rate : rates) {
            values.push_back(rate.*of);
        }
        return medianOf(std::move(values));
    };
    std::printf("%8u labels, million frames a second: one worker %.2f, two %.2f (x %.2f); "
                "in a second of each one's processor time: one %.2f, two %.2f (x %.2f)\n",
                labels, median(one, &Rate::byClock) / 1e6, median(two, &Rate::byClock) / 1e6,
                median(two, &Rate::byClock) / median(one, &Rate::byClock),
                median(one, &Rate::byProcessor) / 1e6, median(two, &Rate::byProcessor) / 1e6,
                median(two, &Rate::byProcessor) / median(one, &Rate::byProcessor));
}

} // namespace Bench
