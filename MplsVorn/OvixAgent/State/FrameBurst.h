#pragma once

#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "State/Frame.h"

namespace OvixAgent {

/// Gathers the frames of a burst, and has memory for those whose bytes lie nowhere else.
class FrameBurst {
  public:
    explicit FrameBurst(std::size_t bytes) : memory_(bytes) {}
    FrameBurst(const FrameBurst&) = delete;
    FrameBurst& operator=(const FrameBurst&) = delete;

    bool isEmpty() const noexcept { return count_ == 0; }
    bool isFull() const noexcept { return count_ == burstFrames; }
    std::span<WritableFrame> frames() noexcept { return {frames_.data(), count_}; }

    void clear() noexcept {
        count_ = 0;
        usedBytes_ = 0;
    }

    /// Adds a frame whose bytes lie elsewhere.
    void add(const WritableFrame& frame) noexcept {
        assert(!isFull() && frame.originalLength >= frame.size);
        frames_[count_++] = frame;
    }

    /// Memory for a frame of at most `longest` bytes with its headroom in front; null when the
    /// burst has no more room.
    std::uint8_t* room(std::size_t longest) noexcept;
    /// Adds the frame whose `frame.size` bytes have been written to the room given last. The place
    /// and the headroom are set here.
    void addWritten(WritableFrame frame) noexcept;

    /// The memory for a burst of frames of at most `longest` bytes, which has room for one more
    /// until it is half full.
    static constexpr std::size_t memoryFor(std::size_t longest) noexcept {
        return 2 * (longest + frameHeadroom);
    }

  private:
    std::array<WritableFrame, burstFrames> frames_{};
    std::size_t count_ = 0;
    std::vector<std::uint8_t> memory_;
    std::size_t usedBytes_ = 0;
};

} // namespace OvixAgent
