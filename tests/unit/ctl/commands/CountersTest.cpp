#include "commands/Counters.h"

#include "AnsweringSocket.h"

namespace CountersTest {

using namespace OvixCtl;

namespace {

constexpr const char* answer = R"({"ok":true,
    "labels":[{"label":100,"packets":3,"bytes":198},{"label":1048575,"packets":12,"bytes":9}],
    "counters":[{"category":"Drop","module":"Routing::Mpls","reason":"No via","count":4}]})";

Tessel::Result<Counters> answered(std::string text) {
    std::erase(text, '\n');
    const TestSupport::AnsweringSocket agent(text + "\n");
    return readCounters(agent.path());
}

/// Without the path.
std::string refusal(const std::string& text) {
    const auto counters = answered(text);
    return counters ? "" : counters.refused().what.substr(counters.refused().what.find(": ") + 2);
}

} // namespace

// The keys stay as they are counted where programs read them.
TEST(Counters, PeopleGetSentencesAndLookUpsThatWentOnAreNoDrops) {
    Counters counters;
    counters.named = {{"Drop", "Routing::Mpls", "No via set in lfib %s for %s", 4},
                      {"Exceptional", "Routing::Mpls", "Some %s event", 1}};
    const std::string text = countersText(counters);
    EXPECT_EQ(text.find('%'), std::string::npos) << text;
    EXPECT_EQ(text.find("Drop"), std::string::npos) << text;
    EXPECT_NE(text.find("label not in this table (looked up in the next)"), std::string::npos);
    EXPECT_NE(countersJson(counters).find("No via set in lfib %s for %s"), std::string::npos);
}

TEST(Counters, PeopleGetTables) {
    EXPECT_EQ(countersText(answered(answer).value()), "  Label  Packets  Bytes\n"
                                                      "    100        3    198\n"
                                                      "1048575       12      9\n"
                                                      "\n"
                                                      "Category  Module         Reason  Count\n"
                                                      "Drop      Routing::Mpls  No via      4\n");
    EXPECT_EQ(countersText({}), "");
}

TEST(Counters, OneLabelAlone) {
    const Counters counters = answered(answer).value();
    EXPECT_EQ(countersJson(countersOfLabel(counters, 100)),
              R"({"labels":[{"label":100,"packets":3,"bytes":198}],"counters":[]})");
    EXPECT_TRUE(countersOfLabel(counters, 101).labels.empty());
}

TEST(Counters, TheAgentsErrorIsPassedOn) {
    EXPECT_EQ(refusal(R"({"ok":false,"error":"not today"})"), "not today");
    EXPECT_EQ(refusal(R"({"ok":false})"), "the agent refuses");
}

TEST(Counters, AnAnswerOfAnotherFormIsRefused) {
    for (const char* text : {"", "[]", "{}", R"({"ok":1})"}) {
        EXPECT_EQ(refusal(text), "the answer is not an agent's") << text;
    }
    for (const char* text :
         {R"({"ok":true})", R"({"ok":true,"labels":[],"counters":[{}]})",
          R"({"ok":true,"labels":[{"label":"x","packets":1,"bytes":1}],"counters":[]})"}) {
        EXPECT_EQ(refusal(text).rfind("the agent's answer is not counters: ", 0), 0U) << text;
    }
}

} // namespace CountersTest
