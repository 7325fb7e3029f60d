#pragma once

#include <chrono>
#include <poll.h>
#include <span>

namespace OvixAgent {

/// poll(2) that stays awake while frames follow each other closely, since sleeping and being woken
/// takes longer than waiting for the next. It stays awake for a bounded time, and only when the
/// last wait was that short; traffic with longer gaps costs no more than sleeping.
class AdaptivePoll {
  public:
    using Clock = std::chrono::steady_clock;
    /// As poll(2).
    using Poll = int (*)(pollfd* descriptors, nfds_t count, int milliseconds);

    /// The longest time to stay awake.
    static constexpr std::chrono::microseconds longestAwake{20};

    explicit AdaptivePoll(Poll poll = &::poll, Clock::time_point (*now)() = &Clock::now) noexcept
        : poll_(poll), now_(now) {}

    /// As poll(2): whether anything is ready. An interruption counts as the end of the time.
    bool wait(std::span<pollfd> descriptors, int milliseconds);

    /// Whether the next wait will stay awake at first.
    bool staysAwake() const noexcept { return staysAwake_; }

  private:
    bool isReady(std::span<pollfd> descriptors, int milliseconds) {
        return poll_(descriptors.data(), descriptors.size(), milliseconds) > 0;
    }

    Poll poll_;
    Clock::time_point (*now_)();
    bool staysAwake_ = false;
};

} // namespace OvixAgent
