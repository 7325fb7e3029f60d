#pragma once

#include <atomic>
#include <cassert>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <span>

#include "State/Frame.h"

namespace OvixAgent {

/// Copies of frames on their way from one thread to one other, in order, in bounded memory, which
/// is taken when it is used first.
class FrameRing {
  public:
    /// `bytes` is a power of two, and more than the longest frame needs.
    explicit FrameRing(std::size_t bytes)
        : size_(bytes), memory_(std::make_unique_for_overwrite<std::uint8_t[]>(bytes)) {
        assert((bytes & (bytes - 1)) == 0);
    }

    enum class Push : std::uint8_t {
        first, ///< the other thread may not know that there are frames
        another,
        refused, ///< there is no room
    };
    /// By the one thread.
    Push push(const WritableFrame& frame) noexcept;

    /// By the other thread: the frame that was pushed first; its bytes, with headroom, stay until
    /// pop(). False when there is none.
    bool front(WritableFrame& frame) noexcept;
    void pop() noexcept;

  private:
    /// In front of each frame's headroom and bytes, which are padded to its alignment.
    struct alignas(32) Record {
        std::uint32_t bytes = 0; ///< with the record
        std::uint32_t size = 0;  ///< of the frame; or `filler` of a record that fills the end
        std::uint32_t originalLength = 0;
        std::uint32_t port = 0;
        CaptureTime time;
    };
    static constexpr std::uint32_t filler = ~std::uint32_t{0};
    static std::size_t recordBytes(std::size_t frame) noexcept {
        constexpr std::size_t mask = alignof(Record) - 1;
        return (sizeof(Record) + frameHeadroom + frame + mask) & ~mask;
    }
    std::uint8_t* at(std::uint64_t position) noexcept {
        return memory_.get() + (position & (size_ - 1));
    }
    void write(std::uint64_t position, const Record& record) noexcept {
        std::memcpy(at(position), &record, sizeof record);
    }

    const std::size_t size_;
    const std::unique_ptr<std::uint8_t[]> memory_;
    // Of the one thread,
    alignas(64) std::atomic<std::uint64_t> pushed_{0};
    std::uint64_t end_ = 0;
    std::uint64_t knownTaken_ = 0;
    // and of the other.
    alignas(64) std::atomic<std::uint64_t> taken_{0};
    std::uint64_t begin_ = 0;
    std::uint64_t knownPushed_ = 0;
    std::uint64_t frontBytes_ = 0;
};

/// Calls `visitor` with the frames of rings, oldest first: about `budget` of the urgent ones, then
/// one of each other ring in turn, with what has come of the urgent ones in between, until there is
/// nothing more or `budget` is reached. So neither kind, however much of it comes, holds up the
/// other, or the caller, for long. Returns how many there were. A frame for which `visitor` returns
/// false is its ring's first one next time.
std::size_t takeFrames(std::span<FrameRing* const> urgent, std::span<FrameRing* const> others,
                       const std::function<bool(const WritableFrame&)>& visitor,
                       std::size_t budget);

} // namespace OvixAgent
