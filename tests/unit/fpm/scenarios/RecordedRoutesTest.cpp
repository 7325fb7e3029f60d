#include <gtest/gtest.h>

#include "FpmEvents.h"
#include "FpmRecordings.h"

namespace RecordedRoutesTest {

// What zebra 8.4.4 sent when these routes were typed (tests/data/fpm/README.md).
namespace {

using namespace TestSupport::Fpm;

TEST(RecordedRoutes, plainRoutes) {
    EXPECT_EQ(linesOf(recorded("plain_routes")),
              (Lines{"203.0.113.0/24 table 254 protocol 196: [] via 192.0.2.2 interface 3 weight 1",
                     "2001:db8:100::/48 table 254 protocol 196: [] via 2001:db8::2 interface 3 "
                     "weight 1",
                     "203.0.114.0/24 table 254 protocol 196: [] interface 3 weight 1"}));
}

TEST(RecordedRoutes, discardingRoutes) {
    EXPECT_EQ(linesOf(recorded("discarding_routes")),
              (Lines{"198.51.100.0/25 table 254 protocol 196: blackhole",
                     "198.51.100.128/25 table 254 protocol 196: unreachable",
                     "2001:db8:200::/48 table 254 protocol 196: blackhole"}));
}

TEST(RecordedRoutes, multipathRoutes) {
    EXPECT_EQ(linesOf(recorded("multipath_routes")),
              (Lines{"203.0.115.0/24 table 254 protocol 196: [] via 192.0.2.2 interface 3 weight "
                     "1, [] via 192.0.2.6 interface 5 weight 1",
                     "2001:db8:300::/48 table 254 protocol 196: [] via 2001:db8::2 interface 3 "
                     "weight 1, [] via 2001:db8:1::2 interface 5 weight 1"}));
}

TEST(RecordedRoutes, labelledRoutes) {
    EXPECT_EQ(linesOf(recorded("labelled_routes")),
              (Lines{"203.0.116.0/24 table 254 protocol 196: [16/1048575] via 192.0.2.2 interface "
                     "3 weight 1",
                     "203.0.117.0/24 table 254 protocol 196: [100] via 192.0.2.2 interface 3 "
                     "weight 1, [200/300/400] via 192.0.2.6 interface 5 weight 1",
                     "2001:db8:400::/48 table 254 protocol 196: [500] via 2001:db8::2 interface 3 "
                     "weight 1"}));
}

TEST(RecordedRoutes, aChangedRouteIsWithdrawnAndMadeInOneFrame) {
    EXPECT_EQ(linesOf(recorded("changed_route")),
              (Lines{"203.0.113.0/24 table 254 withdrawn",
                     "203.0.113.0/24 table 254 protocol 196: [] via 192.0.2.6 interface 5 weight "
                     "1"}));
}

TEST(RecordedRoutes, labelRoutes) {
    EXPECT_EQ(linesOf(recorded("label_routes")),
              (Lines{"label 1000 protocol 196: [2000] via 192.0.2.2 interface 3 weight 1",
                     "label 1001 protocol 196: [] via 192.0.2.2 interface 3 weight 1",
                     "label 1002 protocol 196: [0] via 192.0.2.6 interface 5 weight 1",
                     "label 1003 protocol 196: [2003] via 192.0.2.2 interface 3 weight 1, [2013] "
                     "via 192.0.2.6 interface 5 weight 1",
                     "label 1004 protocol 196: [2004] via 2001:db8::2 interface 3 weight 1",
                     "label 1005 protocol 196: [2] via 2001:db8::2 interface 3 weight 1"}));
}

TEST(RecordedRoutes, aChangedLabelRouteIsOnlyMadeAnew) {
    EXPECT_EQ(linesOf(recorded("changed_label_route")),
              Lines{"label 1000 protocol 196: [2100] via 192.0.2.6 interface 5 weight 1"});
}

TEST(RecordedRoutes, withdrawals) {
    EXPECT_EQ(linesOf(recorded("withdrawals")),
              (Lines{"203.0.116.0/24 table 254 withdrawn", "2001:db8:100::/48 table 254 withdrawn",
                     "label 1001 withdrawn"}));
}

TEST(RecordedRoutes, theFirstDumpHasEveryRouteAndLabel) {
    OvixFpm::FpmDecoder decoder;
    const Lines lines = linesOf(decoder, recorded("full_dump"));
    EXPECT_EQ(decoder.counts(), (OvixFpm::MessageCounts{19, 0, 0, 0, 0}));
    EXPECT_EQ(lines.front(), "label 1000 protocol 196: [2100] via 192.0.2.6 interface 5 weight 1");
    const std::string connected = "192.0.2.0/30 table 254 protocol 2: [] interface 3 weight 1";
    EXPECT_EQ(std::count(lines.begin(), lines.end(), connected), 1);
}

TEST(RecordedRoutes, aRouteThroughANextHopGroupIsRefusedAndItsGroupCounted) {
    OvixFpm::FpmDecoder decoder;
    const Lines lines = linesOf(decoder, recorded("next_hop_groups"));
    EXPECT_EQ(decoder.counts(), (OvixFpm::MessageCounts{8, 0, 20, 0, 11}));
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& found) {
                                return found.find("zebra needs \"no fpm use-next-hop-groups\"") !=
                                       std::string::npos;
                            }),
              11);
}

TEST(RecordedRoutes, readTheSameHoweverTheBytesArrive) {
    for (const std::string& name : recordings) {
        const std::vector<std::uint8_t> bytes = recorded(name);
        ASSERT_FALSE(bytes.empty()) << name;
        const Lines whole = linesOf(bytes);
        for (const std::size_t piece : {1U, 2U, 3U, 5U, 100U}) {
            EXPECT_EQ(linesOf(bytes, piece), whole) << name << " in pieces of " << piece;
        }
    }
}

} // namespace

} // namespace RecordedRoutesTest
