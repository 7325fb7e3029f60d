#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Server/Endpoint.h"
#include "Server/Query.h"

namespace OvixHttp {

/// A request to read something.
struct HttpRequest {
    std::string path;
    std::map<std::string, std::string> arguments; ///< of the query, as the route takes them

    /// Empty when there is none of the name.
    std::string argument(const std::string& name) const;
    /// 0 when there is none.
    std::uint64_t number(const std::string& name) const;
};

/// Of the text format of Prometheus.
inline constexpr const char* metricsType = "text/plain; version=0.0.4; charset=utf-8";

struct HttpAnswer {
    unsigned int status = 200;
    std::string type = "text/plain; charset=utf-8";
    std::string body;
    /// The Content-Security-Policy; by default nothing may be loaded or run.
    std::string policy = "default-src 'none'; frame-ancestors 'none'";
};

/// What is served at a path, and the lane that makes it: answers of one lane are made one after the
/// other, in a thread of its own, and none waits for those of another lane.
struct HttpRoute {
    static constexpr std::size_t defaultWaiting = 128;

    std::function<HttpAnswer(const HttpRequest&)> answer;
    std::size_t lane = 0;
    /// Requests that wait for the lane; others are answered with 503. The first route of a lane
    /// says it; by default as many as there can be.
    std::size_t mostWaiting = defaultWaiting;
    /// Requests with others, or with values that are none, are answered with 400.
    std::vector<HttpParameter> parameters{};
};

/// Serves GET and HEAD by HTTP/1.1, from threads of its own, one request a connection. Whoever says
/// nothing, speaks slowly or does not listen holds up nobody: of many connections the oldest one
/// that waits for its client is closed. All that a client can make it keep is bounded.
class HttpServer {
  public:
    /// Connections beyond these close older ones, but none whose answer is being made: of these
    /// there may be as many again.
    static constexpr std::size_t mostConnections = 64;
    /// Of the line and the headers of a request together, about.
    static constexpr std::size_t mostRequestBytes = 8192;

    using Routes = std::map<std::string, HttpRoute>;

    /// `names` are hosts by which it may be asked, beside those of isOwnHost(). Throws
    /// std::runtime_error when it cannot listen.
    HttpServer(const Endpoint& endpoint, std::vector<std::string> names, Routes routes);
    /// Waits for the answers that are being made.
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

  private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace OvixHttp
