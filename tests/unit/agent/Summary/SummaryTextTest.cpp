#include <chrono>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Summary/Summary.h"
#include "SummaryTesting.h"

namespace SummaryTextTest {

using namespace OvixAgent;
using OvixAgent::Testing::busySummary;

TEST(SummaryTable, AlignsNumbersAndLeavesOutPortsWithoutFrames) {
    EXPECT_EQ(summaryTable(busySummary()),
              "fate                                       frames  bytes\n"
              "in                                             12   1200\n"
              "forwarded                                       8  12645\n"
              "  eth1                                          3    300\n"
              "  eth10                                         5  12345\n"
              "punted                                          1\n"
              "  OAM packet                                    1\n"
              "dropped                                         3\n"
              "  No labels resolved                            2\n"
              "  TTL expired                                   1\n"
              "handed on                                       1\n"
              "  not MPLS                                      1\n"
              "replicas                                        1\n"
              "exceptions                                      2   3032\n"
              "\n"
              "label                                     packets  bytes\n"
              "  100                                           7    700\n"
              "  1048575                                       1    100\n"
              "\n"
              "pseudowire                                 frames  bytes\n"
              "  red sent                                      2    200\n"
              "  red delivered                                 1     60\n"
              "\n"
              "counter                                     count\n"
              "  Drop Routing::Mpls: No labels resolved        2\n");
}

TEST(SummaryTable, OfNothingIsShort) {
    EXPECT_EQ(summaryTable(Summary()), "fate       frames  bytes\n"
                                       "in              0      0\n"
                                       "forwarded       0      0\n"
                                       "punted          0\n"
                                       "dropped         0\n"
                                       "handed on       0\n");
}

TEST(SummaryTable, EndsWithProblemsAndAnImbalance) {
    Summary summary;
    summary.in = {5, 500};
    summary.replicas = 2;
    summary.dropped.add("TTL expired", 4);
    summary.problems = {"a.pcap is truncated after frame 5"};
    const std::string text = summaryTable(summary);
    const std::string end = "\na.pcap is truncated after frame 5\n"
                            "\nNOT BALANCED: 5 frames in and 2 copies, 4 accounted for\n";
    ASSERT_GT(text.size(), end.size());
    EXPECT_EQ(text.substr(text.size() - end.size()), end);
}

TEST(SummaryJson, HoldsEverything) {
    Summary summary = busySummary();
    summary.tables = {"lab", 7, 2};
    summary.problems = {"a.pcap is truncated after frame 12"};
    EXPECT_EQ(nlohmann::json::parse(summaryJson(summary)), nlohmann::json::parse(R"({
        "balanced": true,
        "in": {"frames": 12, "bytes": 1200},
        "forwarded": {"frames": 8, "bytes": 12645, "ports": {
            "eth1": {"frames": 3, "bytes": 300},
            "eth2": {"frames": 0, "bytes": 0},
            "eth10": {"frames": 5, "bytes": 12345}}},
        "punted": {"frames": 1, "reasons": {"OAM packet": 1}},
        "dropped": {"frames": 3, "reasons": {"No labels resolved": 2, "TTL expired": 1}},
        "handedOn": {"frames": 1, "reasons": {"not MPLS": 1}},
        "replicas": 1,
        "exceptions": {"frames": 2, "bytes": 3032},
        "labels": [{"label": 100, "packets": 7, "bytes": 700},
                   {"label": 1048575, "packets": 1, "bytes": 100}],
        "pseudowires": [{"name": "red", "sent": {"frames": 2, "bytes": 200},
                         "delivered": {"frames": 1, "bytes": 60}}],
        "counters": [{"category": "Drop", "module": "Routing::Mpls",
                      "reason": "No labels resolved", "count": 2}],
        "tables": {"name": "lab", "generation": 7, "corruptions": 2, "problem": null},
        "problems": ["a.pcap is truncated after frame 12"]})"));
}

TEST(SummaryJson, ManyReasonsTakeTimeInProportion) {
    Summary summary;
    for (int i = 0; i < 100'000; ++i) {
        summary.dropped.add("reason " + std::to_string(i), 1);
    }
    const auto start = std::chrono::steady_clock::now();
    const std::string json = summaryJson(summary);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(nlohmann::json::parse(json)["dropped"]["reasons"].size(), 100'000U);
}

TEST(SummaryJson, HasEveryKeyWhenThereIsNothing) {
    const auto json = nlohmann::json::parse(summaryJson(Summary()));
    EXPECT_EQ(json, nlohmann::json::parse(R"({
        "balanced": true, "in": {"frames": 0, "bytes": 0},
        "forwarded": {"frames": 0, "bytes": 0, "ports": {}},
        "punted": {"frames": 0, "reasons": {}}, "dropped": {"frames": 0, "reasons": {}},
        "handedOn": {"frames": 0, "reasons": {}}, "replicas": 0,
        "exceptions": {"frames": 0, "bytes": 0},
        "labels": [], "pseudowires": [], "counters": [], "tables": {"name": "", "generation": 0, "corruptions": 0, "problem": null}, "problems": []})"));
}

TEST(SummaryJson, KeepsTheOrderOfItsKeysAndPorts) {
    const std::string text = summaryJson(busySummary());
    EXPECT_LT(text.find("\"balanced\""), text.find("\"in\""));
    EXPECT_LT(text.find("\"eth2\""), text.find("\"eth10\""));
}

TEST(SummaryJson, TellsAnImbalance) {
    Summary summary;
    summary.in.frames = 1;
    EXPECT_EQ(nlohmann::json::parse(summaryJson(summary)).at("balanced"), false);
}

TEST(SummaryJson, BytesThatAreNotUtf8AreReplaced) {
    Summary summary;
    summary.problems = {"\xff.pcap"};
    EXPECT_EQ(nlohmann::json::parse(summaryJson(summary)).at("problems").at(0),
              "\xef\xbf\xbd.pcap");
}

TEST(SummaryTable, ReadsWithoutPlaceholders) {
    Summary summary;
    summary.dropped.add("Via type %s handler not found", 1);
    summary.counters = {{"Drop", "Routing::Mpls", "No via set in lfib %s for %s", 4}};
    const std::string text = summaryTable(summary);
    EXPECT_NE(text.find("  No handler for the via's type"), std::string::npos);
    EXPECT_NE(text.find("  Lookup Routing::Mpls: label not in this table (looked up in the next)"),
              std::string::npos);
    EXPECT_EQ(text.find("%s"), std::string::npos);
}

TEST(ControlAnswers, HoldTheirParts) {
    EXPECT_EQ(doneAnswer(), R"({"ok":true})");
    EXPECT_EQ(refusalAnswer("not \xff today"),
              "{\"ok\":false,\"error\":\"not \xef\xbf\xbd today\"}");
    const Summary summary = busySummary();
    Summary grown;
    grown.in.frames = 7;
    grown.dropped.add("TTL expired", 1);
    EXPECT_EQ(labelText({100, {7, 700}}), R"({"label":100,"packets":7,"bytes":700})");
    EXPECT_EQ(countersText(summary.counters),
              R"([{"category":"Drop","module":"Routing::Mpls","reason":"No labels resolved",)"
              R"("count":2}])");
    EXPECT_EQ(statusAnswer(summary, "1.0", "live", {5, {{"decap", 7}}, 4, 3}),
              R"({"ok":true,"version":"1.0","run":"live",)"
              R"("tables":{"name":"","generation":0,"corruptions":0,"problem":null,)"
              R"("committedAt":5,"entries":{"decap":7}},)"
              R"("frames":{"in":12,"replicas":1,"forwarded":8,"punted":1,"dropped":3,"handedOn":1,)"
              R"("queued":0,"answers":0},"neighbours":{"known":4,"wanted":3},"balanced":true})");
    EXPECT_EQ(fatesAnswer(summary, {10, summary}, {2, grown}),
              R"({"ok":true,"in":12,"answers":0,"replicas":1,"forwarded":8,)"
              R"("punted":{"frames":1,"reasons":{"OAM packet":1}},)"
              R"("dropped":{"frames":3,"reasons":{"No labels resolved":2,"TTL expired":1}},)"
              R"("handedOn":{"frames":1,"reasons":{"not MPLS":1}},"queued":0,"balanced":true,)"
              R"("sinceAsked":{"seconds":10.0,"in":12,"replicas":1,"forwarded":8,)"
              R"("punted":{"frames":1,"reasons":{"OAM packet":1}},)"
              R"("dropped":{"frames":3,"reasons":{"No labels resolved":2,"TTL expired":1}},)"
              R"("handedOn":{"frames":1,"reasons":{"not MPLS":1}}},)"
              R"("perSecond":{"seconds":2.0,"in":3.5,"replicas":0.0,"forwarded":0.0,)"
              R"("punted":{"frames":0.0,"reasons":{}},)"
              R"("dropped":{"frames":0.5,"reasons":{"TTL expired":0.5}},)"
              R"("handedOn":{"frames":0.0,"reasons":{}}}})");
}

TEST(ControlRequests, NameACommand) {
    EXPECT_EQ(requestedCommand(R"({"command":"status","more":1})").value(), "status");
    const std::vector<std::string> wrong{"[]",
                                         "{}",
                                         R"({"command":7})",
                                         "null",
                                         R"("command")",
                                         "",
                                         "{",
                                         "status",
                                         std::string("\0", 1),
                                         std::string(60'000, '[')};
    for (const std::string& request : wrong) {
        const auto refused = requestedCommand(request);
        ASSERT_FALSE(refused) << request;
        EXPECT_EQ(refused.refused().what, "a request is an object with a command");
    }
}

} // namespace SummaryTextTest
