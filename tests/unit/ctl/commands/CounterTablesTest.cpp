#include "commands/CounterTables.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace OvixCtl;

namespace {

const auto answer = nlohmann::ordered_json::parse(R"({"ok":true,
    "labels":[{"label":100,"packets":3,"bytes":198},{"label":1048575,"packets":12,"bytes":9}],
    "counters":[{"category":"Drop","module":"Routing::Mpls","reason":"No via","count":4}]})");

} // namespace

TEST(CounterTables, PeopleGetTables) {
    EXPECT_EQ(countersText(countersOf(answer)), "  Label  Packets  Bytes\n"
                                                "    100        3    198\n"
                                                "1048575       12      9\n"
                                                "\n"
                                                "Category  Module         Reason  Count\n"
                                                "Drop      Routing::Mpls  No via      4\n");
    EXPECT_EQ(countersText({}), "");
}

TEST(CounterTables, OneLabelStandsAlone) {
    EXPECT_EQ(countersJson(countersOfLabel(countersOf(answer), 100)).dump(),
              R"({"labels":[{"label":100,"packets":3,"bytes":198}],"counters":[]})");
    EXPECT_TRUE(countersOfLabel(countersOf(answer), 101).labels.empty());
}

TEST(CounterTables, AnAnswerOfAnotherFormIsRefused) {
    for (const char* text : {"{}", R"({"labels":[],"counters":[{}]})",
                             R"({"labels":[{"label":"x","packets":1,"bytes":1}],"counters":[]})"}) {
        EXPECT_THROW(countersOf(nlohmann::ordered_json::parse(text)), std::runtime_error) << text;
    }
}
