#pragma once

#include <chrono>
#include <csignal>
#include <ctime>

namespace OvixCtl {

/// SIGINT and SIGTERM, for a command that goes on until one of them comes: blocked except while it
/// waits for what it looks at.
class EndSignals {
  public:
    EndSignals() {
        sigemptyset(&set_);
        sigaddset(&set_, SIGINT);
        sigaddset(&set_, SIGTERM);
        sigprocmask(SIG_BLOCK, &set_, nullptr);
    }

    /// Waits. True when a signal came.
    bool cameWithin(std::chrono::nanoseconds time) const {
        const timespec wait{time.count() / 1'000'000'000, time.count() % 1'000'000'000};
        return sigtimedwait(&set_, nullptr, &wait) > 0;
    }

  private:
    sigset_t set_{};
};

} // namespace OvixCtl
