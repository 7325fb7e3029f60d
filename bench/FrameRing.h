#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "Scenarios.h"
#include "State/Frame.h"

namespace Bench {

/// Writable frames with headroom, filled all at once well ahead of their use, as a port's ring is:
/// a frame that was copied in just before stalls whoever reads it.
class FrameRing {
  public:
    static constexpr std::size_t frames = 4096;
    static_assert(frames % OvixAgent::burstFrames == 0);

    /// The scenario must outlive the ring.
    explicit FrameRing(const Scenario& scenario);

    /// Fills all frames with the scenario's next ones.
    void fill();
    /// Parts of `burstFrames`, one after the other.
    std::span<OvixAgent::WritableFrame> burst(std::size_t number) noexcept {
        return std::span(placed_).subspan(number * OvixAgent::burstFrames, OvixAgent::burstFrames);
    }
    std::span<OvixAgent::WritableFrame> all() noexcept { return placed_; }

  private:
    const Scenario* scenario_;
    std::size_t next_ = 0;
    std::vector<std::uint8_t> memory_;
    std::vector<OvixAgent::WritableFrame> placed_;
};

} // namespace Bench
