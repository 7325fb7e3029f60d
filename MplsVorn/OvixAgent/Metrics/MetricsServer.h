#pragma once

#include <memory>
#include <string>

namespace OvixAgent {

/// Serves the metrics of an agent at http://ADDRESS:PORT/metrics, in the text format of Prometheus,
/// from threads of its own. It asks the agent at its control socket, as ovixctl does, and at the
/// most five times a second however often it is asked itself: the frame path knows nothing of it.
class MetricsServer {
  public:
    /// `address` is ADDRESS:PORT, `control` the path of a socket that is served. Throws
    /// std::runtime_error when it cannot listen there.
    MetricsServer(const std::string& address, std::string control);
    ~MetricsServer();
    MetricsServer(const MetricsServer&) = delete;
    MetricsServer& operator=(const MetricsServer&) = delete;

  private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace OvixAgent
