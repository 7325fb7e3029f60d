#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "publishing/RoutePublisher.h"
#include "publishing/WaitingConnections.h"
#include "vtysh/VtyshWatch.h"

namespace OvixFpm {

/// Asks ldpd every now and then for its pseudowires, which zebra's FPM does not carry, and
/// publishes them: the pseudowires themselves, by which an agent sends the frames of their
/// circuits, and the routes of their own labels, which lead to the circuits.
class LdpWatch final : public VtyshWatch {
  public:
    struct Settings : VtyshWatch::Settings {
        std::chrono::milliseconds keptFor{30000}; ///< pseudowires, when ldpd does not answer
    };

    /// Publishes in batches of `routes`, which must outlive it.
    LdpWatch(RoutePublisher& routes, const Settings& settings, Log log);

  private:
    std::vector<std::string> questions() override;
    void take(const Tessel::Result<std::string>& printed) override;
    void takeFailure(const std::string& why);
    void withTables(const std::function<void()>& change);
    std::vector<L2::Pseudowire> confirmed(std::vector<L2::Pseudowire> all);
    void publish(const std::vector<L2::Pseudowire>& all);
    void publishLabels(const std::vector<L2::Pseudowire>& before,
                       const std::vector<L2::Pseudowire>& after);
    void report(const std::vector<L2::Pseudowire>& before,
                const std::vector<L2::Pseudowire>& after) const;

    RoutePublisher* routes_;
    std::chrono::milliseconds keptFor_;
    Log log_;
    Clock::time_point answeredAt_ = Clock::now();
    bool answers_ = true;              ///< ldpd did when it was last asked
    std::vector<std::string> doubted_; ///< were down in the last answer, and are published as up
};

} // namespace OvixFpm
