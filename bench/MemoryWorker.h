#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <span>
#include <vector>

#include "FrameRing.h"
#include "Live/workers/Worker.h"
#include "MemoryQueue.h"

namespace Bench {

/// What a worker's queue hands out: the same frames again and again, as they were at first.
class SameFrames {
  public:
    /// The scenario must outlive it.
    explicit SameFrames(const Scenario& scenario);
    std::span<OvixAgent::WritableFrame> next();

  private:
    /// Bytes of a frame that a swap changes.
    static constexpr std::size_t changed = 18;

    FrameRing ring_;
    std::vector<std::array<std::uint8_t, changed>> starts_;
    std::size_t next_ = 0;
};

/// A worker with its queue, and what it has done.
struct MemoryWorker {
    /// `decided` and the scenario must outlive it; `ports` is how many ports its queue stands for.
    MemoryWorker(OvixAgent::DecidedTables& decided, int wake, const Scenario& scenario,
                 std::size_t ports);
    MemoryWorker(const MemoryWorker&) = delete;
    MemoryWorker& operator=(const MemoryWorker&) = delete;
    ~MemoryWorker() = default;

    /// Forwards in the calling thread until then.
    void run(const std::atomic<bool>& ends);

    SameFrames given;
    OvixAgent::Worker worker;
    TestSupport::MemoryQueue* queue = nullptr;
    double seconds = 0; ///< of processor time that the last run took
    double frames = 0;  ///< that it has forwarded
};

double medianOf(std::vector<double> values);

} // namespace Bench
