#include "Metrics/AgentMetrics.h"

#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "Exposition/MetricList.h"

namespace OvixAgent {

namespace {

using OvixHttp::MetricList;

using Json = nlohmann::json;

Json parsed(const std::string& answer) {
    Json json = Json::parse(answer);
    if (!json.at("ok").get<bool>()) {
        throw Json::other_error::create(501, "the agent refuses", nullptr);
    }
    return json;
}

void addStatus(MetricList& list, const Json& status) {
    list.gauge("ovix_agent_info", "The version of the agent, and the kind of its run.", 1,
               {{"version", status.at("version")}, {"run", status.at("run")}});
    const Json& tables = status.at("tables");
    const MetricList::Labels labels{{"tables", tables.at("name")}};
    list.gauge("ovix_tables_generation", "The generation of the label tables that frames go by.",
               tables.at("generation"), labels);
    list.counter("ovix_tables_corruptions_total", "Damaged records read from the label tables.",
                 tables.at("corruptions"), labels);
    list.gauge("ovix_tables_sound", "1 while the file of the label tables is as it should be.",
               tables.at("problem").is_null() ? 1 : 0, labels);
}

void addReasons(MetricList& list, const std::string& fate, const Json& reasons) {
    for (const auto& [reason, count] : reasons.at("reasons").items()) {
        list.counter("ovix_frames_total", "Frames and replicas by what became of them, and why.",
                     count, {{"fate", fate}, {"reason", reason}});
    }
}

void addFates(MetricList& list, const Json& fates) {
    list.counter("ovix_frames_in_total", "Frames received.", fates.at("in"));
    list.counter("ovix_frame_replicas_total",
                 "Copies beyond the first of replicated frames, and further fragments.",
                 fates.at("replicas"));
    list.counter("ovix_frames_total", "Frames and replicas by what became of them, and why.",
                 fates.at("forwarded"), {{"fate", "forwarded"}, {"reason", ""}});
    for (const char* const fate : {"punted", "dropped", "handedOn"}) {
        addReasons(list, fate, fates.at(fate));
    }
    list.gauge("ovix_frames_queued", "Packets that wait for their neighbour to be resolved.",
               fates.at("queued"));
    list.gauge("ovix_frames_balanced", "1 when each frame is accounted for exactly once.",
               fates.at("balanced").get<bool>() ? 1 : 0);
}

void addPorts(MetricList& list, const Json& ports) {
    for (const Json& port : ports.at("ports")) {
        list.gauge("ovix_port_up", "1 while frames leave by the port.", port.at("state") == "up",
                   {{"port", port.at("name")}});
    }
    for (const Json& port : ports.at("ports")) {
        if (const Json& received = port.at("received"); !received.is_null()) {
            list.counter("ovix_port_received_frames_total",
                         "Frames received by the port and its sub-interfaces.", received,
                         {{"port", port.at("name")}});
        }
    }
    for (const Json& port : ports.at("ports")) {
        list.counter("ovix_port_sent_frames_total", "Frames sent by the port.",
                     port.at("sent").at("frames"), {{"port", port.at("name")}});
    }
    for (const Json& port : ports.at("ports")) {
        list.counter("ovix_port_sent_bytes_total", "Bytes of the frames sent by the port.",
                     port.at("sent").at("bytes"), {{"port", port.at("name")}});
    }
}

void addVrfs(MetricList& list, const Json& vrfs) {
    for (const Json& vrf : vrfs.at("vrfs")) {
        list.gauge("ovix_vrf_routes", "IP routes of the VRF.", vrf.at("routes"),
                   {{"vrf", vrf.at("name")}});
    }
}

void addEvents(MetricList& list, const Json& events) {
    for (const Json& event : events.at("counters")) {
        list.counter("ovix_events_total",
                     "What ovixctl counters show has under \"counter\": events of the plugin, the "
                     "ports, the answers and the fast path.",
                     event.at("count"),
                     {{"category", event.at("category")},
                      {"module", event.at("module")},
                      {"event", event.at("reason")}});
    }
}

} // namespace

std::vector<prometheus::MetricFamily> metricsOf(const AgentAnswers& answers) {
    constexpr const char* upHelp = "1 when the agent answers at its control socket.";
    try {
        MetricList list;
        list.gauge("ovix_up", upHelp, 1);
        addStatus(list, parsed(answers.status));
        addFates(list, parsed(answers.fates));
        addPorts(list, parsed(answers.ports));
        addVrfs(list, parsed(answers.vrfs));
        addEvents(list, parsed(answers.events));
        return std::move(list).taken();
    } catch (const Json::exception&) {
        MetricList list;
        list.gauge("ovix_up", upHelp, 0);
        return std::move(list).taken();
    }
}

} // namespace OvixAgent
