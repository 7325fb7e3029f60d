#pragma once

#include <atomic>
#include <cstdint>

namespace Tessel {

/// Counts whatever happens in the process that may make void what the packet thread has kept: while
/// the count stays, nothing has changed. Other threads may count, too, when they make what the
/// packet thread takes over later.
class Changes {
  public:
    static void notice() noexcept { count_.fetch_add(1, std::memory_order_relaxed); }
    static std::uint64_t count() noexcept { return count_.load(std::memory_order_relaxed); }

  private:
    static std::atomic<std::uint64_t> count_;
};

} // namespace Tessel
