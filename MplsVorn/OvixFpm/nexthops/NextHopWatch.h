#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "publishing/Companion.h"
#include "publishing/RoutePublisher.h"
#include "publishing/WaitingConnections.h"
#include "vtysh/Vtysh.h"

namespace OvixFpm {

/// Asks zebra for the next hops that its messages leave out, and publishes the routes with them.
class NextHopWatch final : public Companion {
  public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::string vtysh = "/usr/bin/vtysh";
        std::string socketDirectory; ///< of FRR's vty sockets; empty: vtysh's default
        /// Until what zebra does not show yet is asked for again.
        std::chrono::milliseconds every{1000};
        std::chrono::milliseconds patience{5000};
    };

    /// Publishes in batches of `routes`, which must outlive it.
    NextHopWatch(RoutePublisher& routes, Settings settings, Log log);

    int descriptor() const noexcept override { return run_ ? run_->descriptor() : -1; }
    int timeoutMs() const override;
    void serve() override;

  private:
    void start();
    void take(const Tessel::Result<std::string>& printed);
    void fail(const std::string& why);

    RoutePublisher* routes_;
    Settings settings_;
    Log log_;
    std::optional<Vtysh> run_;
    std::vector<L3::RouteKey> asked_;  ///< by the run
    std::optional<L3::RouteKey> last_; ///< that was asked for, of those that wait
    Clock::time_point nextAt_;
    bool answers_ = true; ///< zebra did when it was last asked
};

} // namespace OvixFpm
