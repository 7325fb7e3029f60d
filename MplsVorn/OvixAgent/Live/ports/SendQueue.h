#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <sys/socket.h>
#include <vector>

#include "Live/ports/LivePort.h"

namespace OvixAgent {

/// Frames to be sent on a socket, many by one call.
class SendQueue {
  public:
    static constexpr std::size_t maxFrames = 256;
    static constexpr std::size_t maxBytes = std::size_t{1} << 19U;

    /// As sendmmsg(2).
    using SendMany = int (*)(int socket, mmsghdr* messages, unsigned int count, int flags);

    /// `counts` must outlive the queue.
    explicit SendQueue(LiveCounts& counts, SendMany sendMany = &::sendmmsg);
    SendQueue(const SendQueue&) = delete;
    SendQueue& operator=(const SendQueue&) = delete;

    /// Copies the frame. A full queue is flushed first; the frame is dropped if it still has no
    /// room.
    void push(int socket, std::span<const std::uint8_t> frame) noexcept;

    /// Sends the frames that the kernel accepts now.
    void flush(int socket) noexcept;

    /// Drops and counts all frames.
    void drop(LiveEvent reason) noexcept;

    std::size_t size() const noexcept { return end_ - first_; }

  private:
    bool fits(std::size_t bytes) const noexcept {
        return end_ < maxFrames && bytes <= bytes_.size() - usedBytes_;
    }
    bool continuesAfter(int error) noexcept;
    void skip(LiveEvent reason) noexcept;
    void rewindIfEmpty() noexcept;

    LiveCounts* counts_;
    SendMany sendMany_;
    std::vector<std::uint8_t> bytes_;
    std::size_t usedBytes_ = 0;
    std::array<iovec, maxFrames> extents_{};
    std::array<mmsghdr, maxFrames> messages_{};
    std::size_t first_ = 0; ///< the frames [first_, end_) are to be sent
    std::size_t end_ = 0;
};

} // namespace OvixAgent
