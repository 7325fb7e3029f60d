#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Server/HttpServer.h"
#include "publishing/FpmServer.h"

namespace OvixFpm {

/// The metrics of a listener in the text format of Prometheus, those of its process included.
std::string metricsText(const FpmState& state);

/// Serves them at /metrics, from threads of its own.
class MetricsServer {
  public:
    /// `state` is called by other threads. `names` as for OvixHttp::HttpServer. Throws
    /// std::runtime_error when it cannot listen.
    MetricsServer(const OvixHttp::Endpoint& endpoint, std::vector<std::string> names,
                  std::function<FpmState()> state);

  private:
    std::optional<OvixHttp::HttpServer> server_;
};

} // namespace OvixFpm
