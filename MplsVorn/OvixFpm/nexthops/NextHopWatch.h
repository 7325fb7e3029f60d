#pragma once

#include <optional>
#include <string>
#include <vector>

#include "publishing/RoutePublisher.h"
#include "publishing/WaitingConnections.h"
#include "vtysh/VtyshWatch.h"

namespace OvixFpm {

/// Asks zebra for the next hops that its messages leave out, and publishes the routes with them.
/// What zebra does not show yet is asked for again.
class NextHopWatch final : public VtyshWatch {
  public:
    /// Publishes in batches of `routes`, which must outlive it.
    NextHopWatch(RoutePublisher& routes, Settings settings, Log log);

  private:
    bool hasQuestions() const override { return routes_->missing().isWaiting(); }
    std::vector<std::string> questions() override;
    void take(const Tessel::Result<std::string>& printed) override;
    void publish(const std::vector<std::vector<NextHop>>& hops);
    void fail(const std::string& why);

    RoutePublisher* routes_;
    Log log_;
    std::vector<L3::RouteKey> asked_;  ///< by the run
    std::optional<L3::RouteKey> last_; ///< that was asked for, of those that wait
    bool answers_ = true;              ///< zebra did when it was last asked
};

} // namespace OvixFpm
