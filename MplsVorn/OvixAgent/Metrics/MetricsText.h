#pragma once

#include <chrono>
#include <string>

namespace OvixAgent {

/// The metrics of an agent in the text format of Prometheus. Asks the agent at its control socket,
/// as ovixctl does, and at the most five times a second however often it is asked itself: the frame
/// path knows nothing of it. Used by one thread.
class MetricsText {
  public:
    /// `control` is the path of a socket that is served.
    explicit MetricsText(std::string control) : control_(std::move(control)) {}

    /// Not older than 200 ms.
    const std::string& text();

  private:
    using Clock = std::chrono::steady_clock;

    std::string control_;
    std::string text_; ///< empty at first
    Clock::time_point made_;
};

} // namespace OvixAgent
