#pragma once

#include <chrono>

#include "Forwarding/Forwarder.h"
#include "Summary/Summary.h"

namespace OvixAgent {

/// How the fates of frames grow: since they were asked for last, and per second of late.
class FateHistory {
  public:
    using Clock = std::chrono::steady_clock;

    /// The forwarder must outlive it.
    explicit FateHistory(const Forwarder& forwarder, Clock::time_point now = Clock::now());

    /// To be called between bursts; does nothing when a second has not passed.
    void tick(Clock::time_point now = Clock::now()) {
        if (now - last_.time >= every) [[unlikely]] {
            before_ = last_;
            last_ = {now, forwarder_->counts()};
        }
    }

    /// Since the last call, or the start.
    FateGrowth sinceAsked(Clock::time_point now = Clock::now());
    /// Since one to two seconds ago, or the start.
    FateGrowth ofLate(Clock::time_point now = Clock::now()) const;

  private:
    static constexpr std::chrono::seconds every{1};
    struct Moment {
        Clock::time_point time;
        Forwarder::Counts counts;
    };
    FateGrowth since(const Moment& before, Clock::time_point now) const;

    const Forwarder* forwarder_;
    Moment asked_;
    Moment before_;
    Moment last_;
};

} // namespace OvixAgent
