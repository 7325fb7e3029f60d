#include "Metrics/AgentMetrics.h"

#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "Exposition/MetricList.h"

namespace OvixAgent {

namespace {

using OvixHttp::MetricList;

using ReadJson = nlohmann::json;

ReadJson parsed(const std::string& answer) {
    ReadJson json = ReadJson::parse(answer);
    if (!json.at("ok").get<bool>()) {
        throw ReadJson::other_error::create(501, "the agent refuses", nullptr);
    }
    return json;
}

void addStatus(MetricList& list, const ReadJson& status) {
    list.gauge("ovix_agent_info", "The version of the agent, and the kind of its run.", 1,
               {{"version", status.at("version")}, {"run", status.at("run")}});
    const ReadJson& tables = status.at("tables");
    const MetricList::Labels labels{{"tables", tables.at("name")}};
    list.gauge("ovix_tables_generation", "The generation of the label tables that frames go by.",
               tables.at("generation"), labels);
    list.counter("ovix_tables_corruptions_total", "Damaged records read from the label tables.",
                 tables.at("corruptions"), labels);
    list.gauge("ovix_tables_sound", "1 while the file of the label tables is as it should be.",
               tables.at("problem").is_null() ? 1 : 0, labels);
    list.gauge("ovix_tables_commit_timestamp_seconds",
               "When that generation was published, in Unix time.",
               tables.at("committedAt").get<double>() / 1e9, labels);
    for (const auto& [table, entries] : tables.at("entries").items()) {
        list.gauge("ovix_table_entries", "Entries of a table: labels, adjacencies or VRFs.",
                   entries, {{"table", table}});
    }
    list.gauge("ovix_neighbours", "Neighbours whose MAC address is known.",
               status.at("neighbours").at("known"));
    list.gauge("ovix_neighbours_wanted", "Neighbours that queued packets wait for.",
               status.at("neighbours").at("wanted"));
}

void addOwned(MetricList& list, const std::vector<OwnedRoutes>& owned) {
    for (const OwnedRoutes& routes : owned) {
        list.gauge("ovix_label_routes", "Label routes in shared tables by their owner.",
                   static_cast<double>(routes.routes),
                   {{"table", routes.table}, {"owner", routes.owner}});
    }
}

/// Frames, then bytes: those of one name must come one after the other.
void addLabels(MetricList& list, const ReadJson& labels) {
    for (const ReadJson& label : labels.at("top-labels")) {
        list.counter("ovix_label_frames_total", "Frames received with a label; the busiest labels.",
                     label.at("packets"), {{"label", label.at("label").dump()}});
    }
    for (const ReadJson& label : labels.at("top-labels")) {
        list.counter("ovix_label_bytes_total", "Their bytes.", label.at("bytes"),
                     {{"label", label.at("label").dump()}});
    }
}

void addReasons(MetricList& list, const std::string& fate, const ReadJson& reasons) {
    for (const auto& [reason, count] : reasons.at("reasons").items()) {
        list.counter("ovix_frames_total", "Frames and replicas by what became of them, and why.",
                     count, {{"fate", fate}, {"reason", reason}});
    }
}

void addFates(MetricList& list, const ReadJson& fates) {
    constexpr const char* inHelp = "Frames that came in by ports, and answers of the router.";
    const auto answers = fates.at("answers").get<double>();
    list.counter("ovix_frames_in_total", inHelp, fates.at("in").get<double>() - answers,
                 {{"origin", "ports"}});
    list.counter("ovix_frames_in_total", inHelp, answers, {{"origin", "router"}});
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

void addPorts(MetricList& list, const ReadJson& ports) {
    for (const ReadJson& port : ports.at("ports")) {
        list.gauge("ovix_port_up", "1 while frames leave by the port.", port.at("state") == "up",
                   {{"port", port.at("name")}});
    }
    for (const ReadJson& port : ports.at("ports")) {
        if (const ReadJson& received = port.at("received"); !received.is_null()) {
            list.counter("ovix_port_received_frames_total",
                         "Frames received by the port and its sub-interfaces.", received,
                         {{"port", port.at("name")}});
        }
    }
    for (const ReadJson& port : ports.at("ports")) {
        if (const ReadJson& received = port.at("receivedBytes"); !received.is_null()) {
            list.counter("ovix_port_received_bytes_total", "Bytes of the frames received.",
                         received, {{"port", port.at("name")}});
        }
    }
    for (const ReadJson& port : ports.at("ports")) {
        if (const ReadJson& ring = port.at("ring"); !ring.is_null() && ring.at("frames") != 0) {
            list.gauge("ovix_port_ring_frames", "Frames that the port's receive ring has room for.",
                       ring.at("frames"), {{"port", port.at("name")}});
        }
    }
    for (const ReadJson& port : ports.at("ports")) {
        if (const ReadJson& ring = port.at("ring"); !ring.is_null()) {
            list.counter("ovix_port_ring_drops_total",
                         "Frames not received for want of room in the ring.", ring.at("drops"),
                         {{"port", port.at("name")}});
        }
    }
    for (const ReadJson& port : ports.at("ports")) {
        std::size_t worker = 0;
        for (const ReadJson& queue : port.value("queues", ReadJson::array())) {
            list.counter("ovix_queue_received_frames_total",
                         "Frames received by a worker's queue of the port.", queue.at("received"),
                         {{"port", port.at("name")}, {"worker", std::to_string(worker++)}});
        }
    }
    for (const ReadJson& port : ports.at("ports")) {
        list.counter("ovix_port_sent_frames_total", "Frames sent by the port.",
                     port.at("sent").at("frames"), {{"port", port.at("name")}});
    }
    for (const ReadJson& port : ports.at("ports")) {
        list.counter("ovix_port_sent_bytes_total", "Bytes of the frames sent by the port.",
                     port.at("sent").at("bytes"), {{"port", port.at("name")}});
    }
}

void addVrfs(MetricList& list, const ReadJson& vrfs) {
    for (const ReadJson& vrf : vrfs.at("vrfs")) {
        list.gauge("ovix_vrf_routes", "IP routes of the VRF.", vrf.at("routes"),
                   {{"vrf", vrf.at("name")}});
    }
}

void addEvents(MetricList& list, const ReadJson& events) {
    for (const ReadJson& event : events.at("counters")) {
        list.counter("ovix_events_total",
                     "Events of the plugin, the ports, the answers and the fast path.",
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
        addOwned(list, answers.owned);
        if (!answers.topLabels.empty()) {
            addLabels(list, parsed(answers.topLabels));
        }
        addEvents(list, parsed(answers.events));
        return std::move(list).taken();
    } catch (const ReadJson::exception&) {
        MetricList list;
        list.gauge("ovix_up", upHelp, 0);
        return std::move(list).taken();
    }
}

} // namespace OvixAgent
