#include "Metrics/AgentMetrics.h"

#include <gtest/gtest.h>
#include <prometheus/text_serializer.h>

namespace AgentMetricsTest {

using OvixAgent::AgentAnswers;

const AgentAnswers whole{
    .status = R"({"ok":true,"version":"1","run":"live","tables":{"name":"lab","generation":7,)"
              R"("corruptions":2,"problem":"cut","committedAt":1500000000,"entries":{"decap":3}},)"
              R"("neighbours":{"known":4,"wanted":1}})",
    .fates = R"({"ok":true,"in":9,"answers":2,"replicas":1,"forwarded":5,"punted":{"reasons":{}},)"
             R"("dropped":{"reasons":{"No \"route\"":3}},"handedOn":{"reasons":{"Not MPLS":1}},)"
             R"("queued":1,"balanced":true})",
    .ports =
        R"({"ok":true,"ports":[)"
        R"({"name":"a","state":"up","received":9,"receivedBytes":900,"ring":{"frames":64,"drops":2},"sent":{"frames":5,"bytes":500}},)"
        R"({"name":"a.1","state":"down","received":null,"receivedBytes":null,"ring":null,"sent":{"frames":0,"bytes":0}}]})",
    .vrfs = R"({"ok":true,"vrfs":[{"name":"red","routes":4,"ports":[]}]})",
    .events = R"({"ok":true,"counters":[{"category":"Path","module":"Agent","reason":"fast",)"
              R"("count":8}]})",
    .topLabels = "",
    .owned = {{"transit", "fpm", 6}}};

std::vector<std::string> linesOf(const AgentAnswers& answers) {
    const std::string text = prometheus::TextSerializer().Serialize(metricsOf(answers));
    std::vector<std::string> lines;
    for (std::size_t from = 0; from < text.size(); from = text.find('\n', from) + 1) {
        if (text[from] != '#') {
            lines.push_back(text.substr(from, text.find('\n', from) - from));
        }
    }
    return lines;
}

TEST(AgentMetrics, EveryAnswerIsShown) {
    const std::vector<std::string> expected{
        "ovix_up 1",
        R"(ovix_agent_info{version="1",run="live"} 1)",
        R"(ovix_tables_generation{tables="lab"} 7)",
        R"(ovix_tables_corruptions_total{tables="lab"} 2)",
        R"(ovix_tables_sound{tables="lab"} 0)",
        R"(ovix_tables_commit_timestamp_seconds{tables="lab"} 1.5)",
        R"(ovix_table_entries{table="decap"} 3)",
        "ovix_neighbours 4",
        "ovix_neighbours_wanted 1",
        R"(ovix_frames_in_total{origin="ports"} 7)",
        R"(ovix_frames_in_total{origin="router"} 2)",
        "ovix_frame_replicas_total 1",
        R"(ovix_frames_total{fate="forwarded",reason=""} 5)",
        R"(ovix_frames_total{fate="dropped",reason="No \"route\""} 3)",
        R"(ovix_frames_total{fate="handedOn",reason="Not MPLS"} 1)",
        "ovix_frames_queued 1",
        "ovix_frames_balanced 1",
        R"(ovix_port_up{port="a"} 1)",
        R"(ovix_port_up{port="a.1"} 0)",
        R"(ovix_port_received_frames_total{port="a"} 9)",
        R"(ovix_port_received_bytes_total{port="a"} 900)",
        R"(ovix_port_ring_frames{port="a"} 64)",
        R"(ovix_port_ring_drops_total{port="a"} 2)",
        R"(ovix_port_sent_frames_total{port="a"} 5)",
        R"(ovix_port_sent_frames_total{port="a.1"} 0)",
        R"(ovix_port_sent_bytes_total{port="a"} 500)",
        R"(ovix_port_sent_bytes_total{port="a.1"} 0)",
        R"(ovix_vrf_routes{vrf="red"} 4)",
        R"(ovix_label_routes{table="transit",owner="fpm"} 6)",
        R"(ovix_events_total{category="Path",module="Agent",event="fast"} 8)"};
    EXPECT_EQ(linesOf(whole), expected);
}

TEST(AgentMetrics, LabelsAreThereWhenTheyWereAskedFor) {
    AgentAnswers answers = whole;
    answers.topLabels = R"({"ok":true,"top-labels":[{"label":100,"packets":9,"bytes":900},)"
                        R"({"label":16,"packets":1,"bytes":64}]})";
    std::vector<std::string> labels;
    for (const std::string& line : linesOf(answers)) {
        if (line.find("ovix_label_") == 0 && line.find("routes") == std::string::npos) {
            labels.push_back(line);
        }
    }
    const std::vector<std::string> expected{
        R"(ovix_label_frames_total{label="100"} 9)", R"(ovix_label_frames_total{label="16"} 1)",
        R"(ovix_label_bytes_total{label="100"} 900)", R"(ovix_label_bytes_total{label="16"} 64)"};
    EXPECT_EQ(labels, expected);
}

TEST(AgentMetrics, AnAgentThatDoesNotAnswerIsNotUp) {
    const std::vector<std::string> down{"ovix_up 0"};
    EXPECT_EQ(linesOf({}), down);
    for (const char* const bad :
         {"", "{", "[]", R"({"ok":false,"error":"no"})", R"({"ok":true})"}) {
        AgentAnswers answers = whole;
        answers.events = bad;
        EXPECT_EQ(linesOf(answers), down) << bad;
        answers = whole;
        answers.status = bad;
        EXPECT_EQ(linesOf(answers), down) << bad;
    }
}

} // namespace AgentMetricsTest
