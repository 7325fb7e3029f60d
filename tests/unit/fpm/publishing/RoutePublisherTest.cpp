#include "publishing/RoutePublisher.h"

#include "LocalTables.h"
#include "PublishingTesting.h"

namespace RoutePublisherTest {

namespace {

using namespace OvixFpm;
using namespace PublishingTesting;

class RoutePublisherTest : public testing::Test {
  protected:
    /// Makes a change visible, and returns why it was refused.
    std::string change(const RouteChange& wanted) {
        const auto applied = publisher.apply(wanted);
        publisher.commit();
        TestSupport::refreshWholly(tables.published);
        return applied ? "" : applied.refused().what;
    }
    void sweep() {
        publisher.sweep();
        publisher.commit();
        TestSupport::refreshWholly(tables.published);
    }

    TestSupport::LocalTables tables;
    MadeUpInterfaces interfaces;
    Mpls::SharedPublisher shared{tables.publisher};
    RoutePublisher publisher{shared, interfaces};
    const TablesAsText now{tables.reader};
};

struct LabelCase {
    const char* what;
    RouteChange route;
    const char* transit;
    const char* decap;
};

struct PrefixCase {
    const char* what;
    RouteChange route;
    const char* expected;
};

} // namespace

TEST_F(RoutePublisherTest, LabelsAreSwitchedAsTheirNextHopsSay) {
    const std::vector<LabelCase> cases{
        {"swap", labelRoute(1000, {hop({2000}, "192.0.2.2", 3)}),
         "swap 2000 via 192.0.2.2 west0 weight 1", ""},
        {"implicit null", labelRoute(1001, {hop({}, "192.0.2.2", 3)}),
         "pop via 192.0.2.2 west0 weight 1", ""},
        {"explicit null of IPv4", labelRoute(1002, {hop({0}, "192.0.2.6", 5)}),
         "swap 0 via 192.0.2.6 east0 weight 1", ""},
        {"explicit null of IPv6", labelRoute(1003, {hop({2}, "2001:db8::2", 3)}),
         "swap 2 via 2001:db8::2 west0 weight 1", ""},
        {"several labels", labelRoute(1004, {hop({16, 1048575}, "192.0.2.2", 3)}),
         "swap 16/1048575 via 192.0.2.2 west0 weight 1", ""},
        {"weights, pop and swap",
         labelRoute(1005, {hop({2005}, "192.0.2.2", 3, 256), hop({}, "2001:db8:1::2", 5, 7)}),
         "swap 2005 via 192.0.2.2 west0 weight 256, pop via 2001:db8:1::2 east0 weight 7", ""},
        {"the TTL is not propagated", labelRoute(1006, {hop({}, "192.0.2.2", 3)}, false),
         "pop via 192.0.2.2 west0 pipe weight 1", ""},
        {"an interface alone", labelRoute(1007, {hop({}, "", 5)}), "pop east0 weight 1", ""},
        {"a VRF device", labelRoute(1008, {hop({}, "", 9)}), "", "red"},
        {"two next hops, one of them a VRF device",
         labelRoute(1009, {hop({}, "", 9), hop({}, "192.0.2.2", 3)}),
         "pop red weight 1, pop via 192.0.2.2 west0 weight 1", ""},
    };
    for (const LabelCase& each : cases) {
        const std::uint32_t label = std::get<Lumo::MplsLabel>(each.route.to).value();
        EXPECT_EQ(change(each.route), "") << each.what;
        EXPECT_EQ(now.transit(label), each.transit) << each.what;
        EXPECT_EQ(now.decap(label), each.decap) << each.what;
    }
    EXPECT_EQ(now.labels(), cases.size());
}

TEST_F(RoutePublisherTest, PrefixesAreRoutedAsTheirNextHopsSay) {
    const L3::RouteKey v4 = to("203.0.113.0", 24);
    const L3::RouteKey v6 = to("2001:db8:100::", 48);
    const std::vector<PrefixCase> cases{
        {"gateway", prefixRoute(v4, {hop({}, "192.0.2.2", 3)}), "via 192.0.2.2 west0 weight 1"},
        {"interface", prefixRoute(v4, {hop({}, "", 5)}), "east0 weight 1"},
        {"push", prefixRoute(v4, {hop({16, 17}, "192.0.2.6", 5)}),
         "push 16/17 via 192.0.2.6 east0 weight 1"},
        {"explicit null is pushed", prefixRoute(v4, {hop({0}, "192.0.2.6", 5)}),
         "push 0 via 192.0.2.6 east0 weight 1"},
        {"weights", prefixRoute(v4, {hop({}, "192.0.2.2", 3, 2), hop({7}, "192.0.2.6", 5, 3)}),
         "via 192.0.2.2 west0 weight 2, push 7 via 192.0.2.6 east0 weight 3"},
        {"IPv4 by an IPv6 next hop", prefixRoute(v4, {hop({}, "2001:db8::2", 3)}),
         "via 2001:db8::2 west0 weight 1"},
        {"IPv6", prefixRoute(v6, {hop({}, "2001:db8::2", 3)}), "via 2001:db8::2 west0 weight 1"},
        {"a VRF's table", prefixRoute(to("203.0.113.0", 24, 10), {hop({}, "192.0.2.6", 5)}),
         "red: via 192.0.2.6 east0 weight 1"},
        {"a VRF's unreachable", prefixRoute(to("0.0.0.0", 0, 10), RouteEnd::unreachable),
         "red: unreachable"},
        {"blackhole", prefixRoute(v4, RouteEnd::blackhole), "drop"},
        {"unreachable", prefixRoute(v4, RouteEnd::unreachable), "unreachable"},
        {"prohibit", prefixRoute(v6, RouteEnd::prohibit), "prohibit"},
        {"local", prefixRoute(v4, RouteEnd::local), "local"},
    };
    for (const PrefixCase& each : cases) {
        const auto& where = std::get<L3::RouteKey>(each.route.to);
        EXPECT_EQ(change(each.route), "") << each.what;
        EXPECT_EQ(now.ip(where.prefix.text(), where.length, where.table), each.expected)
            << each.what;
    }
    EXPECT_EQ(now.ipRoutes(), 4U);
}

TEST_F(RoutePublisherTest, ARouteOfATableWithoutAVrfIsRefused) {
    const L3::RouteKey there = to("203.0.113.0", 24, 11);
    EXPECT_EQ(change(prefixRoute(there, {hop({}, "192.0.2.6", 5)})),
              "routing table 11 is not a VRF's");
    EXPECT_EQ(now.ipRoutes(), 0U);
    interfaces.vrfs[11] = "blue";
    EXPECT_EQ(change(prefixRoute(there, {hop({}, "192.0.2.6", 5)})), "");
    EXPECT_EQ(now.ip("203.0.113.0", 24, 11), "blue: via 192.0.2.6 east0 weight 1");
}

TEST_F(RoutePublisherTest, LabelsWithoutANextHopAreRefused) {
    const L3::RouteKey there = to("203.0.113.0", 24, 10);
    EXPECT_EQ(change(prefixRoute(there, {hop({}, "192.0.2.2", 3)})), "");
    EXPECT_EQ(change(prefixRoute(there, {hop({16, 17}, "", 3)})),
              "labels without a next hop to push them for");
    EXPECT_EQ(now.ipRoutes(), 0U);
}

TEST_F(RoutePublisherTest, AnIpv6RouteMayLeadOverAnIpv4Core) {
    const L3::RouteKey there = to("2001:db8:120::", 64);
    EXPECT_EQ(change(prefixRoute(there, {hop({16, 2}, "192.0.2.2", 3)})), "");
    EXPECT_EQ(now.ip("2001:db8:120::", 64), "push 16/2 via 192.0.2.2 west0 weight 1");
    EXPECT_EQ(change(prefixRoute(there, {hop({16, 17}, "", 3)})), "");
    EXPECT_EQ(now.ip("2001:db8:120::", 64), "push 16/17 west0 weight 1");
    EXPECT_EQ(change(prefixRoute(there, {hop({}, "192.0.2.2", 3)})),
              "an IPv6 route to an IPv4 next hop without labels (RFC 4798)");
    EXPECT_EQ(now.ipRoutes(), 0U);
}

TEST_F(RoutePublisherTest, AVrfDeviceIsThisHostInItsOwnVrfAndRefusedInOthers) {
    EXPECT_EQ(change(prefixRoute(to("10.1.1.1", 32, 10), {hop({}, "", 9)})), "");
    EXPECT_EQ(now.ip("10.1.1.1", 32, 10), "red: red weight 1");
    EXPECT_EQ(change(prefixRoute(to("203.0.118.0", 24), {hop({}, "", 9)})),
              "a route into another VRF, red, is not supported");
    EXPECT_EQ(now.ipRoutes(), 1U);
}

TEST_F(RoutePublisherTest, ARouteOfARemovedVrfCanBeWithdrawn) {
    const L3::RouteKey there = to("203.0.113.0", 24, 10);
    EXPECT_EQ(change(prefixRoute(there, {hop({}, "192.0.2.6", 5)})), "");
    interfaces.vrfs.clear();
    EXPECT_EQ(change(withdrawn(there)), "");
    EXPECT_EQ(now.ipRoutes(), 0U);
}

TEST_F(RoutePublisherTest, TheKernelIsAskedForItsVrfsOncePerBatch) {
    for (int batch = 1; batch <= 2; ++batch) {
        for (const char* prefix : {"203.0.113.0", "203.0.114.0"}) {
            EXPECT_TRUE(
                publisher.apply(prefixRoute(to(prefix, 24, 10), {hop({}, "192.0.2.6", 5)})));
            EXPECT_TRUE(publisher.apply(prefixRoute(to(prefix, 24), {hop({}, "192.0.2.6", 5)})));
        }
        publisher.commit();
        EXPECT_EQ(interfaces.askedForVrfs, static_cast<unsigned>(batch));
    }
}

TEST_F(RoutePublisherTest, ALabelThatLeadsIntoAVrfAndBackIsOnlyEverAtOnePlace) {
    for (int round = 0; round < 2; ++round) {
        change(labelRoute(1000, {hop({}, "", 9)}));
        EXPECT_EQ(now.transit(1000), "");
        EXPECT_EQ(now.decap(1000), "red");
        change(labelRoute(1000, {hop({2000}, "192.0.2.2", 3)}));
        EXPECT_EQ(now.transit(1000), "swap 2000 via 192.0.2.2 west0 weight 1");
        EXPECT_EQ(now.decap(1000), "");
    }
    EXPECT_EQ(now.labels(), 1U);
}

TEST_F(RoutePublisherTest, WithdrawnRoutesAreRemovedAndMayBeWithdrawnAgain) {
    change(labelRoute(1000, {hop({2000}, "192.0.2.2", 3)}));
    change(labelRoute(1001, {hop({}, "", 9)}));
    change(prefixRoute(to("203.0.113.0", 24), {hop({}, "192.0.2.2", 3)}));
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(change(withdrawn(1000)), "");
        EXPECT_EQ(change(withdrawn(1001)), "");
        EXPECT_EQ(change(withdrawn(to("203.0.113.0", 24))), "");
        EXPECT_EQ(now.labels(), 0U);
        EXPECT_EQ(now.ipRoutes(), 0U);
    }
}

TEST_F(RoutePublisherTest, ARouteByAMissingInterfaceRemovesTheOldOne) {
    change(labelRoute(1000, {hop({2000}, "192.0.2.2", 3)}));
    change(prefixRoute(to("203.0.113.0", 24), {hop({}, "192.0.2.2", 3)}));
    const std::vector<NextHop> hops{hop({}, "192.0.2.2", 3), hop({}, "192.0.2.9", 77)};
    EXPECT_EQ(change(labelRoute(1000, hops)), "there is no interface 77");
    EXPECT_EQ(change(prefixRoute(to("203.0.113.0", 24), hops)), "there is no interface 77");
    EXPECT_EQ(change(labelRoute(1001, {hop({}, "", 77)})), "there is no interface 77");
    EXPECT_EQ(now.labels(), 0U);
    EXPECT_EQ(now.ipRoutes(), 0U);
}

TEST_F(RoutePublisherTest, InterfacesAreAskedForOnceInABatchAndAnewInTheNext) {
    EXPECT_TRUE(publisher.apply(labelRoute(1000, {hop({2000}, "192.0.2.2", 3)})));
    EXPECT_TRUE(publisher.apply(labelRoute(1001, {hop({2001}, "192.0.2.2", 3)})));
    EXPECT_EQ(interfaces.asked, 1U);
    publisher.commit();
    interfaces.all[3].name = "north0";
    change(labelRoute(1001, {hop({2001}, "192.0.2.2", 3)}));
    EXPECT_EQ(interfaces.asked, 2U);
    EXPECT_EQ(now.transit(1000), "swap 2000 via 192.0.2.2 west0 weight 1");
    EXPECT_EQ(now.transit(1001), "swap 2001 via 192.0.2.2 north0 weight 1");
}

TEST_F(RoutePublisherTest, ABatchIsSeenWholeAndOnlyOnceCommitted) {
    const std::uint64_t before = tables.reader->generation();
    EXPECT_TRUE(publisher.apply(labelRoute(1000, {hop({2000}, "192.0.2.2", 3)})));
    EXPECT_TRUE(publisher.apply(prefixRoute(to("203.0.113.0", 24), {hop({}, "192.0.2.2", 3)})));
    TestSupport::refreshWholly(tables.published);
    EXPECT_EQ(now.labels() + now.ipRoutes(), 0U);
    publisher.commit();
    publisher.commit(); // nothing more to make visible
    TestSupport::refreshWholly(tables.published);
    EXPECT_EQ(now.labels() + now.ipRoutes(), 2U);
    EXPECT_EQ(tables.reader->generation(), before + 1);
}

TEST_F(RoutePublisherTest, RoutesThatAreNotAnnouncedAgainAreSwept) {
    change(labelRoute(1000, {hop({2000}, "192.0.2.2", 3)}));
    change(labelRoute(1001, {hop({}, "", 9)}));
    change(labelRoute(1002, {hop({2002}, "192.0.2.2", 3)}));
    change(prefixRoute(to("203.0.113.0", 24), {hop({}, "192.0.2.2", 3)}));
    change(prefixRoute(to("203.0.114.0", 24), {hop({}, "192.0.2.2", 3)}));
    EXPECT_EQ(publisher.staleRoutes(), 0U);
    EXPECT_EQ(publisher.sweep(), 0U);
    publisher.markStale();
    EXPECT_EQ(publisher.staleRoutes(), 5U);
    change(labelRoute(1000, {hop({2000}, "192.0.2.2", 3)}));
    change(prefixRoute(to("203.0.114.0", 24), {hop({}, "192.0.2.6", 5)}));
    change(withdrawn(1002));
    EXPECT_EQ(publisher.staleRoutes(), 2U);
    EXPECT_EQ(now.labels() + now.ipRoutes(), 4U); // stale ones are used until then
    sweep();
    EXPECT_EQ(publisher.staleRoutes(), 0U);
    EXPECT_EQ(now.transit(1000), "swap 2000 via 192.0.2.2 west0 weight 1");
    EXPECT_EQ(now.ip("203.0.114.0", 24), "via 192.0.2.6 east0 weight 1");
    EXPECT_EQ(now.labels() + now.ipRoutes(), 2U);
}

TEST_F(RoutePublisherTest, RoutesOfAnEarlierProcessAreStaleFromTheStart) {
    change(labelRoute(1000, {hop({2000}, "192.0.2.2", 3)}));
    change(labelRoute(1001, {hop({}, "", 9)}));
    change(prefixRoute(to("203.0.113.0", 24), {hop({}, "192.0.2.2", 3)}));
    change(prefixRoute(to("2001:db8::", 32, 10), {hop({}, "2001:db8::2", 3)}));
    RoutePublisher next(shared, interfaces);
    EXPECT_EQ(next.staleRoutes(), 4U);
    EXPECT_TRUE(next.apply(labelRoute(1001, {hop({}, "", 9)})));
    EXPECT_TRUE(next.apply(prefixRoute(to("203.0.113.0", 24), {hop({}, "192.0.2.2", 3)})));
    EXPECT_EQ(next.sweep(), 2U);
    next.commit();
    TestSupport::refreshWholly(tables.published);
    EXPECT_EQ(now.transit(1000), "");
    EXPECT_EQ(now.decap(1001), "red");
    EXPECT_EQ(now.ip("203.0.113.0", 24), "via 192.0.2.2 west0 weight 1");
    EXPECT_EQ(now.ipRoutes(), 1U);
}

TEST(FullTables, TakeNoMoreRoutesButReleaseThem) {
    TestSupport::LocalTables tables(std::size_t{1} << 20U);
    MadeUpInterfaces interfaces;
    Mpls::SharedPublisher shared(tables.publisher);
    RoutePublisher publisher(shared, interfaces);
    std::vector<NextHop> hops;
    for (std::uint32_t i = 1; i <= 60; ++i) {
        hops.push_back(hop({100 + i, 200 + i}, "192.0.2." + std::to_string(i), 3));
    }
    std::uint32_t label = 16;
    bool isFull = false;
    while (!isFull && label < 10000) {
        isFull = !publisher.apply(labelRoute(label++, hops));
        publisher.commit();
    }
    EXPECT_TRUE(isFull);
    ASSERT_LT(label, 10000U);
    for (std::uint32_t gone = 16; gone < label; ++gone) {
        const auto done = publisher.apply(withdrawn(gone));
        EXPECT_TRUE(done) << gone << ": " << done.refused().what;
        EXPECT_NO_THROW(publisher.commit()) << gone;
    }
    TestSupport::refreshWholly(tables.published);
    EXPECT_EQ(TablesAsText(tables.reader).labels(), 0U);
}

} // namespace RoutePublisherTest
