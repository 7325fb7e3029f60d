#include "MemoryWorker.h"

#include <algorithm>
#include <ctime>
#include <memory>

namespace Bench {

namespace {

double secondsOfThread() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace

SameFrames::SameFrames(const Scenario& scenario) : ring_(scenario) {
    ring_.fill();
    for (const OvixAgent::WritableFrame& frame : ring_.all()) {
        std::copy_n(frame.bytes, changed, starts_.emplace_back().begin());
    }
}

std::span<OvixAgent::WritableFrame> SameFrames::next() {
    const std::size_t first = next_ * OvixAgent::burstFrames;
    const std::span<OvixAgent::WritableFrame> burst = ring_.burst(next_);
    next_ = (next_ + 1) % (FrameRing::frames / OvixAgent::burstFrames);
    for (std::size_t i = 0; i < burst.size(); ++i) {
        std::copy_n(starts_[first + i].begin(), changed, burst[i].bytes);
    }
    return burst;
}

MemoryWorker::MemoryWorker(OvixAgent::DecidedTables& decided, int wake, const Scenario& scenario,
                           std::size_t ports)
    : given(scenario), worker(decided, wake) {
    auto made = std::make_unique<TestSupport::MemoryQueue>([this] { return given.next(); });
    queue = made.get();
    worker.ports().push_back(std::move(made));
    for (OvixAgent::PortIndex i = 0; i < ports; ++i) {
        worker.portIs(i, *queue);
    }
}

void MemoryWorker::run(const std::atomic<bool>& ends) {
    const std::uint64_t before = queue->sent();
    const double start = secondsOfThread();
    while (!ends) {
        worker.turn();
    }
    seconds = secondsOfThread() - start;
    frames = static_cast<double>(queue->sent() - before);
}

double medianOf(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace Bench
