#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace OvixLog {

/// Tells the service manager that has started this program how it is doing, by sd_notify(3); does
/// nothing when there is none. Never waits, and an error is nobody's concern.
class ServiceManager {
  public:
    using Clock = std::chrono::steady_clock;

    /// Reads what the manager has left in the environment.
    ServiceManager();

    /// The program does from now on what it is there for.
    void isReady();
    /// It takes over another configuration, and then goes on as before; without effect before it is
    /// ready.
    void isReloading();
    void hasReloaded();
    /// It is about to end.
    void isStopping();
    /// What it is doing, in one line, if that is something else than before.
    void statusIs(std::string_view status);

    /// To be called at each turn of the loop that must not stand still: feeds the watchdog twice in
    /// its time, and costs a comparison in between.
    void turn(Clock::time_point now) {
        if (isDue(now)) {
            feed(now);
        }
    }
    /// Whether the watchdog is to be fed; and feeds it, for loops that ask others first.
    bool isDue(Clock::time_point now) const noexcept { return now >= nextFeeding_; }
    void feed(Clock::time_point now);

  private:
    std::chrono::microseconds feedsEvery_{}; ///< 0: nobody watches
    Clock::time_point nextFeeding_ = Clock::time_point::max();
    std::string status_;
    bool isReady_ = false;
};

} // namespace OvixLog
