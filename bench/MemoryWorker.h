#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "FrameRing.h"
#include "Live/workers/Worker.h"

namespace Bench {

/// A worker's queue in memory: hands out the same frames again and again, as they were at first,
/// and keeps nothing of what leaves.
class MemoryQueue : public OvixAgent::LivePort {
  public:
    /// The scenario must outlive it.
    explicit MemoryQueue(const Scenario& scenario);

    const std::string& name() const noexcept override { return none_; }
    bool isOpen() const noexcept override { return true; }
    bool reopen() override { return true; }
    const std::string& problem() const noexcept override { return none_; }
    int descriptor() const noexcept override { return -1; }
    std::size_t receive(const OvixAgent::BurstVisitor& visitor, std::size_t budget) override;
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

/// A worker with its queue, and what it has done.
struct MemoryWorker {
    /// `decided` and the scenario must outlive it; `ports` is how many ports its queue stands for.
    MemoryWorker(OvixAgent::DecidedTables& decided, int wake, const Scenario& scenario,
                 std::size_t ports);
    /// Forwards in the calling thread until then.
    void run(const std::atomic<bool>& ends);

    OvixAgent::Worker worker;
    MemoryQueue* queue = nullptr;
    double seconds = 0; ///< of processor time that the last run took
    double frames = 0;  ///< that it has forwarded
};

double medianOf(std::vector<double> values);

} // namespace Bench
