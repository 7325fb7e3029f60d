#include "serving/FpmMetrics.h"

#include <iterator>
#include <prometheus/text_serializer.h>
#include <stdexcept>
#include <utility>

#include "Exposition/MetricList.h"
#include "Exposition/ProcessMetrics.h"

namespace OvixFpm {

namespace {

double unixTime(std::chrono::system_clock::time_point at) {
    return std::chrono::duration<double>(at.time_since_epoch()).count();
}

} // namespace

std::string metricsText(const FpmState& state) {
    OvixHttp::MetricList list;
    list.gauge("ovix_fpm_connected", "1 while zebra is connected.", state.isConnected ? 1 : 0);
    list.counter("ovix_fpm_connections_total", "Connections of zebra.",
                 static_cast<double>(state.connections));
    list.gauge("ovix_fpm_connected_timestamp_seconds",
               "When zebra connected last, in Unix time; 0: never.", unixTime(state.connectedAt));
    list.gauge("ovix_fpm_heard_timestamp_seconds",
               "When zebra was heard last, in Unix time; 0: never.", unixTime(state.heardAt));
    for (const auto& [kind, count] :
         {std::pair("routes", state.counts.newRoutes),
          std::pair("withdrawals", state.counts.withdrawals),
          std::pair("nexthops", state.counts.nextHopGroups),
          std::pair("others", state.counts.others), std::pair("refused", state.counts.refused)}) {
        list.counter("ovix_fpm_messages_total", "Messages of zebra by what they are about.",
                     static_cast<double>(count), {{"kind", kind}});
    }
    list.gauge("ovix_fpm_stale_routes", "Routes that zebra has not announced again yet.",
               static_cast<double>(state.staleRoutes));
    std::vector<prometheus::MetricFamily> families = std::move(list).taken();
    std::vector<prometheus::MetricFamily> own = OvixHttp::metricsOfProcess();
    std::move(own.begin(), own.end(), std::back_inserter(families));
    return prometheus::TextSerializer().Serialize(families);
}

MetricsServer::MetricsServer(const OvixHttp::Endpoint& endpoint, std::vector<std::string> names,
                             std::function<FpmState()> state) {
    const auto answer = [state = std::move(state)](const OvixHttp::HttpRequest&) {
        OvixHttp::HttpAnswer made;
        made.type = OvixHttp::metricsType;
        made.body = metricsText(state());
        return made;
    };
    try {
        server_.emplace(endpoint, std::move(names),
                        OvixHttp::HttpServer::Routes{{"/metrics", {answer}}});
    } catch (const std::runtime_error& failed) {
        throw std::runtime_error(std::string("--metrics: ") + failed.what());
    }
}

} // namespace OvixFpm
