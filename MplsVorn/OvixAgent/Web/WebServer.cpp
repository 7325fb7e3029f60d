#include "Web/WebServer.h"

#include <optional>
#include <stdexcept>

#include "Lumo/MplsLabel.h"
#include "Metrics/MetricsText.h"
#include "Server/HttpServer.h"
#include "Web/FateSamples.h"
#include "Web/FrameExplainer.h"
#include "Web/PageData.h"
#include "Web/PageFiles.h"

namespace OvixAgent {

namespace {

using OvixHttp::HttpAnswer;
using OvixHttp::HttpRequest;

/// A flood of one kind of request holds up no other.
enum Lane : std::size_t { metricsLane, pageLane, dataLane, explainLane };

constexpr const char* jsonType = "application/json";
/// Nothing of other sites, and nothing written into the page.
constexpr const char* pagePolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src data:; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
/// No script at all; the style is a part of the page.
constexpr const char* explanationPolicy =
    "default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'; "
    "frame-ancestors 'none'";

HttpAnswer answerOf(const char* type, std::string body) {
    HttpAnswer answer;
    answer.type = type;
    answer.body = std::move(body);
    return answer;
}

} // namespace

struct WebServer::Parts {
    explicit Parts(const Settings& settings)
        : metrics(settings.control, settings.tables, settings.labels), samples(settings.control),
          data(settings.control), explainer(settings.control, settings.tables) {}
    Parts(const Parts&) = delete;
    Parts& operator=(const Parts&) = delete;
    ~Parts() { explainer.stop(); }

    MetricsText metrics;
    FateSamples samples;
    PageData data;
    FrameExplainer explainer;
    std::optional<OvixHttp::HttpServer> server; ///< the first to end

    OvixHttp::HttpServer::Routes routes();
    HttpAnswer explanation(std::uint64_t sequence) const;
};

HttpAnswer WebServer::Parts::explanation(std::uint64_t sequence) const {
    constexpr unsigned int notFound = 404;
    auto page = explainer.page(sequence);
    HttpAnswer answer = page ? answerOf("text/html; charset=utf-8", std::move(page).value())
                             : answerOf("text/plain; charset=utf-8", page.refused().what + "\n");
    answer.status = page ? answer.status : notFound;
    answer.policy = explanationPolicy;
    return answer;
}

OvixHttp::HttpServer::Routes WebServer::Parts::routes() {
    constexpr std::size_t mostReasons = 6;
    constexpr std::size_t mostExplanations = 4;
    constexpr std::size_t defaultWaiting = OvixHttp::HttpRoute::defaultWaiting;
    constexpr std::uint64_t anyNumber = ~std::uint64_t{0};
    OvixHttp::HttpServer::Routes all{
        {"/metrics",
         {[this](const HttpRequest&) { return answerOf(OvixHttp::metricsType, metrics.text()); },
          metricsLane}},
        {"/data",
         {[this](const HttpRequest&) { return answerOf(jsonType, data.now()); }, dataLane}},
        {"/history",
         {[this](const HttpRequest&) { return answerOf(jsonType, samples.json(mostReasons)); },
          pageLane}},
        {"/frames",
         {[this](const HttpRequest& request) {
              return answerOf(jsonType,
                              data.frames(request.number("before"), request.argument("reason")));
          },
          dataLane,
          defaultWaiting,
          {{"before", anyNumber}, {"reason"}}}},
        {"/sets",
         {[this](const HttpRequest& request) {
              return answerOf(jsonType, data.sets(request.number("from")));
          },
          dataLane,
          defaultWaiting,
          {{"from", Lumo::MplsLabel::max}}}},
        {"/explain",
         {[this](const HttpRequest& request) { return explanation(request.number("frame")); },
          explainLane,
          mostExplanations,
          {{"frame", anyNumber, true}}}}};
    for (const PageFile& file : pageFiles()) {
        all[file.path] = {[&file](const HttpRequest&) {
                              HttpAnswer answer = answerOf(file.type, std::string(file.content));
                              answer.policy = pagePolicy;
                              return answer;
                          },
                          pageLane};
    }
    return all;
}

WebServer::WebServer(const Settings& settings) : parts_(std::make_unique<Parts>(settings)) {
    const auto endpoint = OvixHttp::Endpoint::fromText(settings.endpoint);
    try {
        parts_->server.emplace(endpoint.value(), settings.hosts, parts_->routes());
    } catch (const std::runtime_error& failed) {
        throw std::runtime_error(std::string("--metrics: ") + failed.what());
    }
}

WebServer::~WebServer() = default;

} // namespace OvixAgent
