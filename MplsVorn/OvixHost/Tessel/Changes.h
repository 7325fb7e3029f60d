#pragma once

#include <cstdint>

namespace Tessel {

/// Counts whatever happens in the process that may make void what somebody has kept: while the
/// count stays, nothing has changed. The packet thread asks; a thread beside it that prepares state
/// only makes it look again.
class Changes {
  public:
    static void notice() noexcept { __atomic_fetch_add(&count_, 1U, __ATOMIC_RELAXED); }
    static std::uint64_t count() noexcept { return __atomic_load_n(&count_, __ATOMIC_RELAXED); }

  private:
    static std::uint64_t count_;
};

} // namespace Tessel
