#include "WorkersBench.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <sys/eventfd.h>
#include <thread>
#include <utility>
#include <vector>

#include "MemoryWorker.h"
#include "Posix/FileDescriptor.h"
#include "Router.h"

namespace Bench {

namespace {

struct Rate {
    double byClock = 0;     ///< frames a second, of all workers
    double byProcessor = 0; ///< of a second of processor time, of all workers
};

Rate measure(std::span<const std::unique_ptr<MemoryWorker>> all) {
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

} // namespace

void printWorkers(std::uint32_t labels) {
    constexpr std::size_t most = 2;
    constexpr std::size_t rounds = 7;
    const Scenario scenario = makeScenario("swap", labels, FrameRing::frames);
    Router router(scenario.config);
    const Posix::FileDescriptor wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    std::vector<std::unique_ptr<MemoryWorker>> all;
    for (std::size_t i = 0; i < most; ++i) {
        all.push_back(std::make_unique<MemoryWorker>(router.fastPath().shared(), wake.value(),
                                                     scenario, router.ports().ports().size()));
    }
    while (router.fastPath().decideAhead()) {
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
