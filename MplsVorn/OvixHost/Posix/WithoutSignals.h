#pragma once

#include <csignal>

namespace Posix {

/// Blocks all signals for threads that are made while it exists: they are for the one that waits
/// for them.
class WithoutSignals {
  public:
    WithoutSignals() noexcept {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    WithoutSignals(const WithoutSignals&) = delete;
    WithoutSignals& operator=(const WithoutSignals&) = delete;
    ~WithoutSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  private:
    sigset_t before_{};
};

} // namespace Posix
