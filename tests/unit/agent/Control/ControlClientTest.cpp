#include "Control/ControlClient.h"

#include "AnsweringSocket.h"

namespace ControlClientTest {

using OvixAgent::askAgent;
using TestSupport::AnsweringSocket;

TEST(ControlClient, AnAnswerLongerThanASocketHoldsComesWhole) {
    const std::string text(3'000'000, 'x');
    const AnsweringSocket agent(text + "\n");
    EXPECT_EQ(askAgent(agent.path(), R"({"command":"counters"})").value(), text);
    EXPECT_EQ(agent.request(), R"({"command":"counters"})");
}

TEST(ControlClient, AnAnswerWithoutAnEndIsRefused) {
    const AnsweringSocket agent("{");
    EXPECT_EQ(askAgent(agent.path(), R"({"command":"counters"})").refused().what,
              "control socket " + agent.path() + ": the answer has no end");
}

TEST(ControlClient, AMissingAgentIsReportedWithThePath) {
    EXPECT_EQ(askAgent("/nonexistent", R"({"command":"counters"})").refused().what,
              "control socket /nonexistent: there is no such socket: is the agent running?");
    const std::string path(200, 'x');
    EXPECT_EQ(askAgent(path, R"({"command":"counters"})").refused().what,
              "control socket " + path + ": the path is too long");
}

} // namespace ControlClientTest
