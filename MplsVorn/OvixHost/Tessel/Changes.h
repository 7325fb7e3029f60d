#pragma once

#include <cstdint>

namespace Tessel {

/// Counts whatever happens in the process that may make void what somebody has kept: while the
/// count stays, nothing has changed. Used by the packet thread and by nobody else.
class Changes {
  public:
    static void notice() noexcept { ++count_; }
    static std::uint64_t count() noexcept { return count_; }

  private:
    static std::uint64_t count_;
};

} // namespace Tessel
