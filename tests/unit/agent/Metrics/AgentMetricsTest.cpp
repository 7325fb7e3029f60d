#include "Metrics/AgentMetrics.h"

#include <gtest/gtest.h>
#include <prometheus/text_serializer.h>

namespace AgentMetricsTest {

using OvixAgent::AgentAnswers;

const AgentAnswers whole{
    .status = R"({"ok":true,"version":"1","run":"live","tables":{"name":"lab","generation":7,)"
              R"("corruptions":2,"problem":"cut"}})",
    .fates = R"({"ok":true,"in":9,"replicas":1,"forwarded":5,"punted":{"reasons":{}},)"
             R"("dropped":{"reasons":{"No \"route\"":3}},"handedOn":{"reasons":{"Not MPLS":1}},)"
             R"("queued":1,"balanced":true})",
    .ports = R"({"ok":true,"ports":[)"
             R"({"name":"a","state":"up","received":9,"sent":{"frames":5,"bytes":500}},)"
             R"({"name":"a.1","state":"down","received":null,"sent":{"frames":0,"bytes":0}}]})",
    .vrfs = R"({"ok":true,"vrfs":[{"name":"red","routes":4,"ports":[]}]})",
    .events = R"({"ok":true,"counters":[{"category":"Path","module":"Agent","reason":"fast",)"
              R"("count":8}]})"};

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
        "ovix_frames_in_total 9",
        "ovix_frame_replicas_total 1",
        R"(ovix_frames_total{fate="forwarded",reason=""} 5)",
        R"(ovix_frames_total{fate="dropped",reason="No \"route\""} 3)",
        R"(ovix_frames_total{fate="handedOn",reason="Not MPLS"} 1)",
        "ovix_frames_queued 1",
        "ovix_frames_balanced 1",
        R"(ovix_port_up{port="a"} 1)",
        R"(ovix_port_up{port="a.1"} 0)",
        R"(ovix_port_received_frames_total{port="a"} 9)",
        R"(ovix_port_sent_frames_total{port="a"} 5)",
        R"(ovix_port_sent_frames_total{port="a.1"} 0)",
        R"(ovix_port_sent_bytes_total{port="a"} 500)",
        R"(ovix_port_sent_bytes_total{port="a.1"} 0)",
        R"(ovix_vrf_routes{vrf="red"} 4)",
        R"(ovix_events_total{category="Path",module="Agent",event="fast"} 8)"};
    EXPECT_EQ(linesOf(whole), expected);
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
