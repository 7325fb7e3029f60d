#pragma once

#include <memory>
#include <string>
#include <vector>

namespace OvixAgent {

/// Serves what an agent shows by HTTP: a page at /, its metrics at /metrics. It asks the agent at
/// its control socket, from threads of its own; nothing can be changed by it.
class WebServer {
  public:
    struct Settings {
        std::string endpoint;           ///< as of OvixHttp::Endpoint::fromText
        std::vector<std::string> hosts; ///< names by which it may be asked
        std::string control;            ///< the path of a socket that is served
        std::string tables;             ///< the name of shared tables; empty: there are none
        std::size_t labels = 0;         ///< how many of the busiest labels are among the metrics
    };

    /// Throws std::runtime_error when it cannot listen there.
    explicit WebServer(const Settings& settings);
    ~WebServer();
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

  private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace OvixAgent
