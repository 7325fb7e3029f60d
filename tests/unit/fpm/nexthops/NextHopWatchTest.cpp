#include "nexthops/NextHopWatch.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <sstream>

#include "LocalTables.h"
#include "PublishingTesting.h"

namespace NextHopWatchTest {

namespace {

using namespace std::chrono_literals;
using namespace OvixFpm;
using namespace PublishingTesting;

/// As zebra shows a route to this next hop.
std::string shown(const char* gateway, int interface, const char* labels) {
    std::ostringstream text;
    text << R"({"x":[{"selected":true,"nexthops":[{"ip":")" << gateway
         << R"(","afi":"ipv4","interfaceIndex":)" << interface << R"(,"active":true,"labels":[)"
         << labels << "]}]}]}\n";
    return text.str();
}

class NextHopWatchTest : public testing::Test {
  protected:
    NextHopWatchTest() {
        std::string name = testing::TempDir() + "ovix-next-hops-XXXXXX";
        directory = mkdtemp(name.data());
        std::ofstream(directory / "vtysh")
            << "#!/bin/sh\necho \"$@\" >> " << directory.string() << "/asked\nexec cat "
            << directory.string() << "/answers\n";
        std::filesystem::permissions(directory / "vtysh", std::filesystem::perms::owner_all);
        NextHopWatch::Settings settings;
        settings.vtysh = (directory / "vtysh").string();
        settings.socketDirectory = "/run/of-zebra";
        settings.every = 20ms;
        watch.emplace(routes, settings,
                      [this](std::string_view, const std::string& line) { log += line + "\n"; });
    }
    ~NextHopWatchTest() override { std::filesystem::remove_all(directory); }

    /// What zebra answers from now on.
    void say(const std::string& text) const {
        std::ofstream(directory / "new") << text;
        std::filesystem::rename(directory / "new", directory / "answers");
    }
    std::string asked() const {
        const std::ifstream file(directory / "asked");
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }
    std::ptrdiff_t runs() const {
        const std::string lines = asked();
        return std::count(lines.begin(), lines.end(), '\n');
    }
    void announce(const RouteChange& change) {
        ASSERT_TRUE(routes.apply(change));
        routes.commit();
        tables.reader->refresh();
    }
    void serve() {
        pollfd waiting{watch->descriptor(), POLLIN, 0};
        poll(&waiting, 1, std::min(watch->timeoutMs(), 20));
        watch->serve();
        tables.reader->refresh();
    }
    template <typename Condition>
    bool soon(Condition&& isMet) {
        const auto end = std::chrono::steady_clock::now() + 10s;
        while (!isMet() && std::chrono::steady_clock::now() < end) {
            serve();
        }
        return isMet();
    }
    std::string route(const char* prefix) const { return now.ip(prefix, 48); }

    const L3::RouteKey one = to("2001:db8:1::", 48);
    const L3::RouteKey two = to("2001:db8:2::", 48);
    std::filesystem::path directory;
    TestSupport::LocalTables tables;
    MadeUpInterfaces interfaces;
    Mpls::SharedPublisher shared{tables.publisher};
    RoutePublisher routes{shared, interfaces};
    const TablesAsText now{tables.reader};
    std::string log;
    std::optional<NextHopWatch> watch;
};

} // namespace

TEST_F(NextHopWatchTest, LabelsWithoutANextHopGetTheOneThatZebraShows) {
    say(shown("192.0.2.7", 3, "21,3"));
    announce(prefixRoute(one, {hop({21}, "", 3)}));
    EXPECT_EQ(route("2001:db8:1::"), "push 21 west0 weight 1");
    ASSERT_TRUE(
        soon([&] { return route("2001:db8:1::") == "push 21 via 192.0.2.7 west0 weight 1"; }));
    EXPECT_EQ(asked(), "-d zebra --vty_socket /run/of-zebra -c "
                       "show ipv6 route vrf default 2001:db8:1::/48 json\n");
    for (int i = 0; i < 5; ++i) {
        serve();
    }
    EXPECT_EQ(runs(), 1) << "what is known is not asked";
    EXPECT_EQ(log, "");
}

TEST_F(NextHopWatchTest, RoutesThatLackNothingAreNotAskedFor) {
    announce(prefixRoute(one, {hop({21}, "2001:db8::7", 3)}));
    announce(prefixRoute(two, {hop({}, "", 3)}));
    for (int i = 0; i < 5; ++i) {
        serve();
    }
    EXPECT_EQ(asked(), "");
}

TEST_F(NextHopWatchTest, OnlyTheNextHopOfTheSameInterfaceAndLabelsIsTaken) {
    say(shown("192.0.2.7", 5, "21") + shown("192.0.2.8", 3, "22"));
    announce(prefixRoute(one, {hop({21}, "", 3)}));
    announce(prefixRoute(two, {hop({21}, "", 3)}));
    ASSERT_TRUE(soon([&] { return !asked().empty() && watch->descriptor() < 0; }));
    EXPECT_EQ(route("2001:db8:1::"), "push 21 west0 weight 1");
    EXPECT_EQ(route("2001:db8:2::"), "push 21 west0 weight 1");
    say(shown("192.0.2.7", 3, "21") + shown("192.0.2.8", 3, "21")); // asked for again
    ASSERT_TRUE(
        soon([&] { return route("2001:db8:2::") == "push 21 via 192.0.2.8 west0 weight 1"; }));
    EXPECT_EQ(route("2001:db8:1::"), "push 21 via 192.0.2.7 west0 weight 1");
}

TEST_F(NextHopWatchTest, ARouteThatIsAnnouncedAgainKeepsItsNextHopUntilZebraShowsAnother) {
    say(shown("192.0.2.7", 3, "21"));
    announce(prefixRoute(one, {hop({21}, "", 3)}));
    ASSERT_TRUE(
        soon([&] { return route("2001:db8:1::") == "push 21 via 192.0.2.7 west0 weight 1"; }));
    say(shown("192.0.2.9", 3, "21"));
    announce(prefixRoute(one, {hop({21}, "", 3)}));
    EXPECT_EQ(route("2001:db8:1::"), "push 21 via 192.0.2.7 west0 weight 1");
    EXPECT_TRUE(
        soon([&] { return route("2001:db8:1::") == "push 21 via 192.0.2.9 west0 weight 1"; }));
}

TEST_F(NextHopWatchTest, ARouteThatIsWithdrawnMeanwhileStaysAway) {
    say(shown("192.0.2.7", 3, "21"));
    announce(prefixRoute(one, {hop({21}, "", 3)}));
    watch->serve(); // asks
    announce(RouteChange{one, std::nullopt});
    ASSERT_TRUE(soon([&] { return watch->descriptor() < 0 && !asked().empty(); }));
    EXPECT_EQ(now.ipRoutes(), 0U);
}

TEST_F(NextHopWatchTest, AnswersThatAreNoneAreReportedOnceAndAskedForAgain) {
    say("% Unknown command\n");
    announce(prefixRoute(one, {hop({21}, "", 3)}));
    ASSERT_TRUE(soon([&] { return runs() > 2; }));
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
    EXPECT_NE(log.find("need a link with one neighbour until zebra says"), std::string::npos);
    say(shown("192.0.2.7", 3, "21"));
    ASSERT_TRUE(
        soon([&] { return route("2001:db8:1::") == "push 21 via 192.0.2.7 west0 weight 1"; }));
    EXPECT_NE(log.find("zebra answers again"), std::string::npos);
}

TEST_F(NextHopWatchTest, ManyRoutesAreAskedForABatchAtATime) {
    constexpr int many = 130; // in three batches
    std::string answers;
    for (int i = 0; i < 64; ++i) {
        answers += shown("192.0.2.7", 3, "21");
    }
    say(answers);
    for (int i = 0; i < many; ++i) {
        std::ostringstream prefix;
        prefix << "2001:db8:" << std::hex << 0x100 + i << "::";
        ASSERT_TRUE(routes.apply(prefixRoute(to(prefix.str(), 48), {hop({21}, "", 3)})));
    }
    routes.commit();
    EXPECT_TRUE(soon([&] { return !routes.missing().isWaiting(); }));
    EXPECT_EQ(runs(), 3);
    EXPECT_EQ(route("2001:db8:181::"), "push 21 via 192.0.2.7 west0 weight 1");
}

} // namespace NextHopWatchTest
