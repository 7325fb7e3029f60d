#include "publishing/FpmServer.h"

#include <limits>
#include <system_error>

#include "FpmBytes.h"
#include "FpmServerTesting.h"

namespace FpmServerTest {

namespace {

using namespace PublishingTesting;
using TestSupport::Fpm::Bytes;
using TestSupport::Fpm::recorded;

using OvixFpm::sweepTime;
using std::chrono::milliseconds;

class FpmServer : public FpmServerFixture {};

const std::vector<std::string> allRoutes{"plain_routes", "discarding_routes", "multipath_routes",
                                         "labelled_routes", "label_routes"};
constexpr std::size_t ipRoutesOfAll = 11;
constexpr std::size_t labelsOfAll = 6;

} // namespace

TEST_F(FpmServer, EveryRouteIsPublished) {
    serve();
    const Zebra zebra(port());
    for (const std::string& recording : allRoutes) {
        zebra.tell(recording);
    }
    ASSERT_TRUE(soon([&] { return now.labels() == labelsOfAll; }));
    EXPECT_EQ(now.ipRoutes(), ipRoutesOfAll);
    EXPECT_EQ(now.ip("203.0.113.0", 24), "via 192.0.2.2 west0 weight 1");
    EXPECT_EQ(now.ip("203.0.114.0", 24), "west0 weight 1");
    EXPECT_EQ(now.ip("2001:db8:200::", 48), "drop");
    EXPECT_EQ(now.ip("2001:db8:300::", 48),
              "via 2001:db8::2 west0 weight 1, via 2001:db8:1::2 east0 weight 1");
    EXPECT_EQ(now.ip("203.0.116.0", 24), "push 16/1048575 via 192.0.2.2 west0 weight 1");
    EXPECT_EQ(now.transit(1001), "pop via 192.0.2.2 west0 weight 1");
    EXPECT_EQ(now.transit(1002), "swap 0 via 192.0.2.6 east0 weight 1");
    EXPECT_EQ(now.transit(1003),
              "swap 2003 via 192.0.2.2 west0 weight 1, swap 2013 via 192.0.2.6 east0 weight 1");
    EXPECT_EQ(now.transit(1005), "swap 2 via 2001:db8::2 west0 weight 1");
}

TEST_F(FpmServer, WhatComesTogetherIsOneGeneration) {
    serve();
    const Zebra zebra(port());
    zebra.tell("label_routes");
    ASSERT_TRUE(soon([&] { return now.labels() > 0; }));
    EXPECT_EQ(now.labels(), labelsOfAll);
    const std::uint64_t first = reader->generation();
    zebra.tell("changed_label_route");
    ASSERT_TRUE(soon([&] { return reader->generation() != first; }));
    EXPECT_EQ(reader->generation(), first + 1);
    EXPECT_EQ(now.transit(1000), "swap 2100 via 192.0.2.6 east0 weight 1");
}

TEST_F(FpmServer, WithdrawnRoutesAreRemoved) {
    serve();
    const Zebra zebra(port());
    for (const std::string& recording : allRoutes) {
        zebra.tell(recording);
    }
    ASSERT_TRUE(soon([&] { return now.labels() == labelsOfAll; }));
    zebra.tell("changed_route");
    zebra.tell("withdrawals");
    ASSERT_TRUE(soon([&] { return now.labels() == labelsOfAll - 1; }));
    EXPECT_EQ(now.ipRoutes(), ipRoutesOfAll - 2);
    EXPECT_EQ(now.transit(1001), "");
    EXPECT_EQ(now.ip("203.0.116.0", 24), "");
    EXPECT_EQ(now.ip("203.0.113.0", 24), "via 192.0.2.6 east0 weight 1");
}

TEST_F(FpmServer, RoutesOutliveTheConnection) {
    serve(std::chrono::milliseconds(30));
    Zebra zebra(port());
    zebra.tell("label_routes");
    ASSERT_TRUE(soon([&] { return now.labels() == labelsOfAll; }));
    zebra.end();
    ASSERT_TRUE(soon([&] { return hasLogged("zebra has disconnected; its routes stay"); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(80));
    reader->refresh();
    EXPECT_EQ(now.labels(), labelsOfAll);
    stop();
    EXPECT_EQ(counts().newRoutes, labelsOfAll);
}

TEST_F(FpmServer, RoutesThatTheNextConnectionDoesNotAnnounceAreRemovedOnceItIsQuiet) {
    serve(std::chrono::milliseconds(300));
    Zebra first(port());
    first.tell("label_routes");
    first.tell("plain_routes");
    ASSERT_TRUE(soon([&] { return now.labels() + now.ipRoutes() == labelsOfAll + 3; }));
    first.end();
    const Zebra second(port());
    second.tell("plain_routes");
    second.tell("changed_label_route");
    ASSERT_TRUE(soon([&] { return now.transit(1000).find("2100") != std::string::npos; }));
    EXPECT_EQ(now.labels(), labelsOfAll); // not swept yet
    EXPECT_TRUE(soon([&] { return now.labels() == 1; }));
    EXPECT_EQ(now.ipRoutes(), 3U);
    EXPECT_TRUE(hasLogged("5 routes were not confirmed and are removed"));
    EXPECT_TRUE(hasLogged("zebra is connected; 9 routes are stale until confirmed"));
}

TEST_F(FpmServer, ANewConnectionReplacesTheCurrentOne) {
    serve();
    const Zebra first(port());
    first.tell("label_routes");
    ASSERT_TRUE(soon([&] { return now.labels() == labelsOfAll; }));
    const Zebra second(port());
    second.tell("plain_routes");
    ASSERT_TRUE(soon([&] { return now.ipRoutes() == 3; }));
    EXPECT_TRUE(hasLogged("zebra has connected again"));
    EXPECT_TRUE(soon([&] { return !first.say(recorded("label_routes")); }));
    EXPECT_EQ(now.labels(), labelsOfAll);
}

TEST_F(FpmServer, AConnectionThatEndsInMidMessageIsNoPartOfTheNext) {
    serve();
    const Bytes bytes = recorded("label_routes");
    Zebra first(port());
    first.say({bytes.data(), bytes.size() / 2 + 3});
    ASSERT_TRUE(soon([&] { return now.labels() > 0; }));
    first.end();
    const Zebra second(port());
    second.tell("label_routes");
    EXPECT_TRUE(soon([&] { return now.labels() == labelsOfAll; }));
}

TEST_F(FpmServer, MalformedMessagesAreLoggedAndSkipped) {
    using namespace TestSupport::Fpm;
    serve();
    const Zebra zebra(port());
    zebra.tell("next_hop_groups");
    zebra.say(frame(newRoute({AF_INET, 33}, interface(3))));
    zebra.say(frame(newRoute({}, join({attribute(RTA_DST, v4(0xcb007100)), interface(77)}))));
    zebra.tell("label_routes");
    ASSERT_TRUE(soon([&] { return now.labels() == labelsOfAll; }));
    EXPECT_TRUE(hasLogged("no fpm use-next-hop-groups"));
    EXPECT_TRUE(hasLogged("there is no interface 77"));
}

TEST_F(FpmServer, LosingSyncEndsTheConnectionAndNotTheServer) {
    serve();
    const Zebra first(port());
    first.tell("label_routes");
    first.say(Bytes(1000, 0xff));
    ASSERT_TRUE(soon([&] { return hasLogged("lost sync with the FPM stream"); }));
    const Zebra second(port());
    second.tell("plain_routes");
    ASSERT_TRUE(soon([&] { return now.ipRoutes() == 3; }));
    EXPECT_EQ(now.labels(), labelsOfAll);
}

TEST_F(FpmServer, ItEndsWhenAskedToThoughZebraIsConnected) {
    serve();
    const Zebra zebra(port());
    ASSERT_TRUE(soon([&] { return hasLogged("zebra is connected"); }));
    stop();
    EXPECT_TRUE(hasEnded());
}

TEST_F(FpmServer, APeerThatSendsWithoutEndDoesNotKeepItFromPublishingAndEnding) {
    serve();
    Zebra zebra(port());
    std::atomic<bool> enough = false;
    std::thread sender([&] {
        Bytes many;
        while (many.size() < 1'000'000) {
            const Bytes one = recorded("label_routes");
            many.insert(many.end(), one.begin(), one.end());
        }
        while (!enough && zebra.say(many)) {
        }
    });
    EXPECT_TRUE(soon([&] { return now.labels() == labelsOfAll; }));
    askToStop();
    EXPECT_TRUE(soon([&] { return hasEnded(); }));
    enough = true;
    zebra.cutOff();
    sender.join();
}

TEST_F(FpmServer, AnAddressThatCannotBeListenedAtIsReportedWithTheReason) {
    serve();
    MadeUpInterfaces interfaces;
    TestSupport::LocalTables tables;
    Mpls::SharedPublisher shared(tables.publisher);
    OvixFpm::RoutePublisher publisher(shared, interfaces);
    OvixFpm::FpmServer::Settings settings;
    settings.listenAt = listenAt();
    std::string said;
    try {
        const OvixFpm::FpmServer other(publisher, settings,
                                       [](std::string_view, const std::string&) {});
    } catch (const std::system_error& error) {
        said = error.what();
    }
    EXPECT_EQ(said,
              "cannot listen at 127.0.0.1:" + std::to_string(port()) + ": Address already in use");
}

TEST(SweepTime, SecondsBecomeMilliseconds) {
    EXPECT_EQ(sweepTime(0).value(), milliseconds(0));
    EXPECT_EQ(sweepTime(1.5).value(), milliseconds(1500));
    EXPECT_EQ(sweepTime(3600).value(), milliseconds(3'600'000));
}

TEST(SweepTime, AnInvalidTimeIsRefused) {
    using Limits = std::numeric_limits<double>;
    for (const double seconds : {Limits::quiet_NaN(), -Limits::quiet_NaN(), Limits::infinity(),
                                 -Limits::infinity(), -0.001, 3600.001, 1e300}) {
        EXPECT_FALSE(sweepTime(seconds)) << seconds;
    }
}

} // namespace FpmServerTest
