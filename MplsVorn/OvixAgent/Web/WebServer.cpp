#include "Web/WebServer.h"

#include <optional>
#include <stdexcept>

#include "Metrics/MetricsText.h"
#include "Server/HttpServer.h"

namespace OvixAgent {

namespace {

using OvixHttp::HttpAnswer;
using OvixHttp::HttpRequest;

/// A flood of one kind of request holds up no other.
enum Lane : std::size_t { metricsLane };

HttpAnswer answerOf(const char* type, std::string body) {
    HttpAnswer answer;
    answer.type = type;
    answer.body = std::move(body);
    return answer;
}

} // namespace

struct WebServer::Parts {
    explicit Parts(const Settings& settings) : metrics(settings.control) {}

    MetricsText metrics;
    std::optional<OvixHttp::HttpServer> server; ///< the first to end

    OvixHttp::HttpServer::Routes routes() {
        return {{"/metrics",
                 {[this](const HttpRequest&) {
                      return answerOf("text/plain; version=0.0.4; charset=utf-8", metrics.text());
                  },
                  metricsLane}}};
    }
};

WebServer::WebServer(const Settings& settings)
    : parts_(std::make_unique<Parts>(settings)) {
    const auto endpoint = OvixHttp::Endpoint::fromText(settings.endpoint);
    try {
        parts_->server.emplace(endpoint.value(), settings.hosts, parts_->routes());
    } catch (const std::runtime_error& failed) {
        throw std::runtime_error(std::string("--metrics: ") + failed.what());
    }
}

WebServer::~WebServer() = default;

} // namespace OvixAgent
