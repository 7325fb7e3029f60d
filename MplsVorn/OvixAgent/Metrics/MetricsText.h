#pragma once

#include <chrono>
#include <string>

#include "Metrics/RouteCensus.h"

namespace OvixAgent {

/// The metrics of an agent in the text format of Prometheus. Asks the agent at its control socket,
/// as ovixctl does, and at the most five times a second however often it is asked itself: the frame
/// path knows nothing of it. Used by one thread.
class MetricsText {
  public:
    /// `control` is the path of a socket that is served, `tables` the name of shared tables, or
    /// empty. The counters of so many labels are among the metrics, those of the busiest.
    MetricsText(std::string control, const std::string& tables, std::size_t labels);

    /// Not older than 200 ms.
    const std::string& text();

  private:
    using Clock = std::chrono::steady_clock;

    std::string control_;
    std::size_t labels_;
    RouteCensus census_;
    std::string text_; ///< empty at first
    Clock::time_point made_;
};

} // namespace OvixAgent
