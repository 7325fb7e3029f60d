#include "Explain/Explanation.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "ConfigTesting.h"
#include "Explain/FrameWords.h"

namespace ExplanationTest {

using namespace OvixAgent;

namespace {

Situation situationOf(const std::string& text) {
    Situation situation;
    situation.config = Testing::configOf(text);
    situation.file = "agent.yaml";
    return situation;
}

const char* const circuit = R"(
ports:
  - {name: ce, mac: "02:00:00:00:00:11"}
  - {name: east, mac: "02:00:00:00:00:02", mtu: 1600, addresses: [10.0.2.1/24]}
neighbours:
  - {address: 10.0.2.2, port: east, mac: "02:00:00:00:02:02"}
pseudowires:
  - {name: gold, port: ce, label: 500, interface: east, nexthop: 10.0.2.2, labels: [100]}
)";

const char* const router = R"(
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24]}
  - {name: east, mac: "02:00:00:00:00:02", mtu: 100, addresses: [10.0.2.1/24]}
lfib:
  decap:
    - {label: 100, via: {interface: east, nexthop: 10.0.2.2, action: pop}}
)";

Explanation explained(const Situation& situation, const std::string& frame) {
    const auto given = readFrame(frame, 0, {situation.config.ports[0].mac});
    EXPECT_TRUE(given);
    const auto explanation = explain(situation, given.value());
    EXPECT_TRUE(explanation) << (explanation ? "" : explanation.refused().what);
    return explanation.value();
}

bool hasStep(const Explanation& explanation, const std::string& text) {
    for (const Explanation::Step& step : explanation.steps) {
        if (step.text.find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}

} // namespace

/// RFC 4448: four bytes of a control word are no MAC address.
TEST(Explanation, AControlWordThatIsAddedIsSeenAsOne) {
    const Explanation explanation =
        explained(situationOf(circuit), "mac 02:11:22:33:44:55, ip 10.1.0.1 > 10.9.0.1 udp 5");
    ASSERT_EQ(explanation.walk.sent.size(), 1U);
    const auto headers = parsedHeaders(explanation.walk.sent[0].bytes);
    ASSERT_EQ(headers.size(), 5U);
    EXPECT_EQ(headers[2], "control word 00000000");
    EXPECT_EQ(headers[3], "Ethernet 00:00:5e:00:53:01 > 02:11:22:33:44:55, type 0x0800");
    EXPECT_EQ(headers[4].substr(0, 24), "IPv4 10.1.0.1 > 10.9.0.1");
    EXPECT_TRUE(
        hasStep(explanation, " S, control word 00000000, Ethernet 00:00:5e:00:53:01 > 02:11:22"));
    EXPECT_FALSE(hasStep(explanation, "22:33:44:55:00:00"));
}

TEST(Explanation, WhatIsBeneathLabelsAndNeitherIpNorAFrameIsNotReadAsOne) {
    const std::string labelled = "020000000011 00005e005301 8847 001f4140 ";
    for (const auto& [payload, header] :
         {std::pair("1000002145000000000000000000000000000000",
                    "associated channel (RFC 4385), 20 bytes"),
          std::pair("00000000ffffffffffff02000000000142420300", "no IP packet, 20 bytes")}) {
        const Explanation explanation = explained(situationOf(circuit), labelled + payload);
        ASSERT_EQ(explanation.headers.size(), 3U) << payload;
        EXPECT_EQ(explanation.headers[2], header);
    }
}

/// What is too large is dropped when the neighbour has answered.
TEST(Explanation, AFrameThatWaitsIsFollowedToItsEnd) {
    Situation situation = situationOf(router);
    situation.isLive = situation.waitsForNeighbours = true;
    const std::string frame = "label 100, ip 10.1.1.1 > 10.9.0.1 df size ";
    EXPECT_NE(
        explained(situation, frame + "60")
            .verdict.find(
                ", and then the frame is forwarded by east, 74 bytes, or the frame is dropped"),
        std::string::npos)
        << explained(situation, frame + "60").verdict;
    const Explanation tooLarge = explained(situation, frame + "300");
    EXPECT_NE(tooLarge.verdict.find("and then the frame is dropped: MTU exceeded"),
              std::string::npos)
        << tooLarge.verdict;
    ASSERT_TRUE(tooLarge.change);
    EXPECT_EQ(
        tooLarge.change->commands,
        (std::vector<std::string>{"ping -c 1 -I east 10.0.2.2", "ip link set dev east mtu 300"}));
}

TEST(Explanation, APortThatIsDownTakesNoFrames) {
    Situation situation = situationOf(router);
    situation.isLive = true;
    situation.config.ports[0].isUp = false;
    situation.problems[0] = "disabled";
    const auto remarks = explained(situation, "label 100").remarks;
    ASSERT_FALSE(remarks.empty());
    EXPECT_EQ(remarks[0].substr(0, 32), "port west is down (disabled): no");
    situation.config.ports[0].isUp = true;
    EXPECT_EQ(explained(situation, "label 100").remarks.size(), remarks.size() - 1);
}

TEST(Explanation, NumbersAreNumbersAndViasAreCountedFrom1) {
    Situation situation = situationOf(std::string(router) + R"(
  transit:
    - label: 200
      vias:
        - {interface: east, nexthop: 10.0.2.2, action: swap, labels: [300], weight: 3}
        - {interface: east, nexthop: 10.0.2.3, action: swap, labels: [300], weight: 1}
)");
    const Explanation explanation = explained(situation, "label 200");
    const auto json = nlohmann::json::parse(explanationJson(explanation));
    for (const auto& step : json.at("steps")) {
        if (step.at("step") == "choice") {
            const auto& values = step.at("values");
            EXPECT_EQ(values.at("label"), 200);
            EXPECT_EQ(values.at("weights"), nlohmann::json({3, 1}));
            const std::string said = "via " + values.at("via").dump() + " of 2";
            EXPECT_NE(step.at("text").get<std::string>().find(said), std::string::npos) << step;
            EXPECT_GE(values.at("via"), 1);
            return;
        }
    }
    FAIL() << "no via was chosen: " << json;
}

} // namespace ExplanationTest
