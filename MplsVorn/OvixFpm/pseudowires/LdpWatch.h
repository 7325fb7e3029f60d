#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "publishing/Companion.h"
#include "publishing/RoutePublisher.h"
#include "publishing/WaitingConnections.h"
#include "vtysh/Vtysh.h"

namespace OvixFpm {

/// Asks ldpd every now and then for its pseudowires, which zebra's FPM does not carry, and
/// publishes them: the pseudowires themselves, by which an agent sends the frames of their
/// circuits, and the routes of their own labels, which lead to the circuits.
class LdpWatch final : public Companion {
  public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::string vtysh = "/usr/bin/vtysh";
        std::string socketDirectory; ///< of FRR's vty sockets; empty: vtysh's default
        std::chrono::milliseconds every{1000};
        std::chrono::milliseconds patience{5000};
        std::chrono::milliseconds keptFor{30000}; ///< pseudowires, when ldpd does not answer
    };

    /// Publishes in batches of `routes`, which must outlive it.
    LdpWatch(RoutePublisher& routes, Settings settings, Log log);

    int descriptor() const noexcept override { return run_ ? run_->descriptor() : -1; }
    int timeoutMs() const override;
    void serve() override;

  private:
    void start();
    void take(const Tessel::Result<std::string>& printed);
    void takeFailure(const std::string& why);
    void withTables(const std::function<void()>& change);
    void publish(const std::vector<L2::Pseudowire>& all);
    void publishLabels(const std::vector<L2::Pseudowire>& before,
                       const std::vector<L2::Pseudowire>& after);
    void report(const std::vector<L2::Pseudowire>& before,
                const std::vector<L2::Pseudowire>& after) const;

    RoutePublisher* routes_;
    Settings settings_;
    Log log_;
    std::optional<Vtysh> run_;
    Clock::time_point nextAt_;
    Clock::time_point answeredAt_ = Clock::now();
    bool answers_ = true; ///< ldpd did when it was last asked
};

} // namespace OvixFpm
