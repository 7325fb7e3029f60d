// Recorded routes and labels of VRFs, in the tables.

#include "FpmRecordings.h"
#include "LocalTables.h"
#include "PublishingTesting.h"
#include "decoding/FpmDecoder.h"

namespace VpnPublishingTest {

namespace {

using namespace OvixFpm;
using namespace PublishingTesting;

class VpnPublishing : public testing::Test {
  protected:
    VpnPublishing() {
        // As they were where that was recorded (tests/data/fpm/README.md).
        interfaces.all = {{1, {"lo", 0}},   {2, {"west0", 0}},   {3, {"red", 10}},
                          {4, {"red0", 0}}, {5, {"blue", 1000}}, {6, {"blue0", 0}}};
        interfaces.vrfs = {{10, "red"}, {1000, "blue"}};
    }

    /// Publishes a recording, and returns the refusals.
    std::vector<std::string> publish(const std::string& recording) {
        std::vector<std::string> refused;
        FpmDecoder decoder;
        const auto bytes = TestSupport::Fpm::recorded(recording);
        decoder.take(bytes);
        while (const auto event = decoder.next()) {
            if (const auto applied = publisher.apply(event->value()); !applied) {
                refused.push_back(applied.refused().what);
            }
        }
        publisher.commit();
        TestSupport::refreshWholly(tables.published);
        return refused;
    }

    TestSupport::LocalTables tables;
    MadeUpInterfaces interfaces;
    Mpls::SharedPublisher shared{tables.publisher};
    RoutePublisher publisher{shared, interfaces};
    const TablesAsText now{tables.reader};
};

using Lines = std::vector<std::string>;

} // namespace

TEST_F(VpnPublishing, LabelsLeadIntoTheirVrfs) {
    EXPECT_EQ(publish("vrf_labels"), Lines());
    EXPECT_EQ(now.decap(16), "red");
    EXPECT_EQ(now.decap(17), "red");
    EXPECT_EQ(now.decap(18), "blue");
    EXPECT_EQ(now.decap(19), "blue");
    EXPECT_EQ(now.labels(), 4U);
}

TEST_F(VpnPublishing, RoutesOfTheSamePrefixAreInTheVrfOfTheirTable) {
    EXPECT_EQ(publish("vrf_routes"), Lines{"routing table 30 is not a VRF's"});
    EXPECT_EQ(now.ip("203.0.113.0", 24, 10), "red: via 198.51.100.2 red0 weight 1");
    EXPECT_EQ(now.ip("203.0.113.0", 24, 1000), "blue: via 198.51.100.6 blue0 weight 1");
    EXPECT_EQ(now.ip("203.0.114.0", 24, 10), "red: drop");
    EXPECT_EQ(now.ip("2001:db8:100::", 48, 10), "red: via 2001:db8:a::2 red0 weight 1");
    EXPECT_EQ(now.ipRoutes(), 4U);
}

TEST_F(VpnPublishing, RoutesOverTheCoreHaveTheirTwoLabels) {
    EXPECT_EQ(publish("vpn_routes"), Lines());
    EXPECT_EQ(now.ip("203.0.120.0", 24, 10), "red: push 16/16 via 192.0.2.2 west0 weight 1");
    EXPECT_EQ(now.ip("2001:db8:120::", 64, 10), "red: push 16/17 west0 weight 1");
    EXPECT_EQ(now.ipRoutes(), 2U);
}

TEST_F(VpnPublishing, WhatLeaksOutOfAVrfGoesByThePortsOfTheOther) {
    EXPECT_EQ(publish("vrf_leaked_routes"),
              Lines{"a route into another VRF, red, is not supported"});
    EXPECT_EQ(publish("vrf_imports"), Lines());
    EXPECT_EQ(now.ip("203.0.116.0", 24, 10), "red: via 192.0.2.2 west0 weight 1");
    EXPECT_EQ(now.ip("203.0.117.0", 24), "via 198.51.100.2 red0 weight 1");
    EXPECT_EQ(now.ip("203.0.119.0", 24, 10), "red: push 16/500 via 192.0.2.2 west0 weight 1");
    EXPECT_EQ(now.ip("198.51.100.0", 30, 1000), "blue: red0 weight 1");
}

TEST_F(VpnPublishing, NothingIsLeftOfARemovedVrf) {
    publish("vrf_full_dump");
    EXPECT_EQ(now.labels(), 4U);
    EXPECT_NE(now.ip("203.0.119.0", 24, 10), "");
    publish("vrf_withdrawals");
    interfaces.vrfs.erase(10);
    const Lines refused = publish("vrf_gone");
    EXPECT_EQ(refused,
              (Lines{"routing table 10 is not a VRF's", "routing table 10 is not a VRF's"}));
    EXPECT_EQ(now.decap(16), "");
    EXPECT_EQ(now.labels(), 1U);
    tables.reader->forEach(tables.reader->table(L3::Routes::mountPath, L3::Routes::typeName),
                           [&](std::uint32_t place, Tessel::TableRef) {
                               EXPECT_NE(L3::Routes(tables.reader).at(place)->key.table, 10U);
                           });
}

TEST_F(VpnPublishing, WeightsAreThoseOfBgp) {
    interfaces.all[3] = {"east0", 0};
    publish("routes_with_bandwidth");
    publish("weighted_routes");
    EXPECT_EQ(now.ip("203.0.113.0", 24),
              "via 192.0.2.6 east0 weight 25, via 192.0.2.2 west0 weight 75");
    publish("changed_weights");
    EXPECT_EQ(now.ip("203.0.113.0", 24),
              "via 192.0.2.6 east0 weight 14, via 192.0.2.2 west0 weight 85");
    publish("weights_gone");
    EXPECT_EQ(now.ip("203.0.113.0", 24), "via 192.0.2.2 west0 weight 1");
}

} // namespace VpnPublishingTest
