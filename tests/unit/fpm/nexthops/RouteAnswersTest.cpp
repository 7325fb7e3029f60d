#include "nexthops/RouteAnswers.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

#include "PublishingTesting.h"
#include "SourceDir.h"

namespace RouteAnswersTest {

namespace {

using namespace OvixFpm;
using namespace PublishingTesting;

std::string recorded(const char* name) {
    const std::ifstream file(std::string(TestSupport::sourceDir()) + "/tests/data/zebra/" + name);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string answer(const char* hops, const char* selected = "true") {
    return std::string(R"({"2001:db8::/32":[{"selected":)") + selected + R"(,"nexthops":[)" + hops +
           "]}]}\n";
}

constexpr const char* good =
    R"({"ip":"10.1.1.2","afi":"ipv4","interfaceIndex":3,"active":true,"labels":[21,3]})";

} // namespace

TEST(RouteAnswers, QuestionsNameTheVrf) {
    EXPECT_EQ(routeQuestion(to("2001:db8:1::", 48), ""),
              "show ipv6 route vrf default 2001:db8:1::/48 json");
    EXPECT_EQ(routeQuestion(to("2001:db8:1::", 48), "red"),
              "show ipv6 route vrf red 2001:db8:1::/48 json");
}

TEST(RouteAnswers, WhatZebraShowsOfASixPeRouteIsItsResolvedNextHop) {
    const auto answers = readRouteAnswers(recorded("route-6pe.json"), 1);
    ASSERT_TRUE(answers);
    EXPECT_EQ(answers.value()[0], (std::vector<NextHop>{hop({21}, "10.1.1.2", 3)}));
}

TEST(RouteAnswers, EachQuestionHasAnAnswerAndOneOfNoRouteIsEmpty) {
    const auto answers = readRouteAnswers("{}\n" + answer(good) + answer(good, "false"), 3);
    ASSERT_TRUE(answers);
    EXPECT_TRUE(answers.value()[0].empty());
    EXPECT_EQ(answers.value()[1], (std::vector<NextHop>{hop({21}, "10.1.1.2", 3)}));
    EXPECT_TRUE(answers.value()[2].empty()) << "a route that is not selected";
}

TEST(RouteAnswers, NextHopsThatAreNotUsedAreLeftOut) {
    for (const char* unused :
         {R"({"ip":"10.1.1.2","afi":"ipv4","interfaceIndex":3,"labels":[21]})",
          R"({"ip":"fe80::1","afi":"ipv6","interfaceIndex":3,"active":true,"labels":[21]})",
          R"({"ip":"10.1.1.2","afi":"ipv4","active":true,"labels":[21]})",
          R"({"interfaceIndex":3,"active":true})",
          R"({"ip":"10.1.1.2","afi":"ipv4","interfaceIndex":3,"active":true,"recursive":true})"}) {
        const auto answers = readRouteAnswers(answer(unused), 1);
        ASSERT_TRUE(answers) << unused;
        EXPECT_TRUE(answers.value()[0].empty()) << unused;
    }
}

TEST(RouteAnswers, WhatIsNoneIsRefusedAsAWhole) {
    const std::string whole = answer(good);
    for (const std::string& text :
         {std::string(), std::string("% Unknown command\n"), whole.substr(0, whole.size() / 2),
          std::string("[1]"), std::string(R"({"a":[{"selected":true}]})"),
          std::string(R"({"a":[{"selected":1,"nexthops":[]}]})"),
          answer(R"({"ip":7,"afi":"ipv4","interfaceIndex":3,"active":true})"),
          answer(R"({"ip":"x","afi":"ipv4","interfaceIndex":3,"active":true})"),
          answer(R"({"ip":"10.1.1.2","afi":"ipv4","interfaceIndex":3,"active":true,)"
                 R"("labels":[1048576]})")}) {
        EXPECT_FALSE(readRouteAnswers(text, 1)) << text;
    }
    EXPECT_FALSE(readRouteAnswers(whole, 2)) << "an answer is missing";
}

} // namespace RouteAnswersTest
