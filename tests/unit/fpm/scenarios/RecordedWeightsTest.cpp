#include <gtest/gtest.h>

#include "FpmEvents.h"
#include "FpmRecordings.h"

namespace RecordedWeightsTest {

// What zebra 8.4.4 sent when two BGP neighbours announced their bandwidth
// (tests/data/fpm/README.md).
namespace {

using namespace TestSupport::Fpm;

TEST(RecordedWeights, oneNextHopHasNone) {
    EXPECT_EQ(
        linesOf(recorded("routes_with_bandwidth")),
        (Lines{"203.0.113.0/24 table 254 protocol 186: [] via 192.0.2.2 interface 2 weight 1",
               "2001:db8:100::/48 table 254 protocol 186: [] via fe80::b089:ccff:fe6c:2529 "
               "interface 2 weight 1",
               "label 16 protocol 186: [] via fe80::b089:ccff:fe6c:2529 interface 2 weight 1"}));
}

TEST(RecordedWeights, ofRoutesAreThePartsOfAHundredAndLabelRoutesHaveNone) {
    EXPECT_EQ(
        linesOf(recorded("weighted_routes")),
        (Lines{"2001:db8:100::/48 table 254 withdrawn",
               "2001:db8:100::/48 table 254 protocol 186: [] via fe80::f496:41ff:fe94:f9b8 "
               "interface 3 weight 25, [] via fe80::b089:ccff:fe6c:2529 interface 2 weight 75",
               "203.0.113.0/24 table 254 withdrawn",
               "203.0.113.0/24 table 254 protocol 186: [] via 192.0.2.6 interface 3 weight 25, [] "
               "via 192.0.2.2 interface 2 weight 75",
               "label 16 protocol 186: [] via fe80::b089:ccff:fe6c:2529 interface 2 weight 1, [] "
               "via fe80::f496:41ff:fe94:f9b8 interface 3 weight 1"}));
}

TEST(RecordedWeights, changeByAWithdrawalAndANewRouteAndLeaveTheLabelAlone) {
    EXPECT_EQ(
        linesOf(recorded("changed_weights")),
        (Lines{"2001:db8:100::/48 table 254 withdrawn",
               "2001:db8:100::/48 table 254 protocol 186: [] via fe80::f496:41ff:fe94:f9b8 "
               "interface 3 weight 14, [] via fe80::b089:ccff:fe6c:2529 interface 2 weight 85",
               "203.0.113.0/24 table 254 withdrawn",
               "203.0.113.0/24 table 254 protocol 186: [] via 192.0.2.6 interface 3 weight 14, [] "
               "via 192.0.2.2 interface 2 weight 85"}));
}

TEST(RecordedWeights, endWithTheOtherNextHop) {
    EXPECT_EQ(
        linesOf(recorded("weights_gone")),
        (Lines{"2001:db8:100::/48 table 254 withdrawn",
               "2001:db8:100::/48 table 254 protocol 186: [] via fe80::b089:ccff:fe6c:2529 "
               "interface 2 weight 1",
               "203.0.113.0/24 table 254 withdrawn",
               "203.0.113.0/24 table 254 protocol 186: [] via 192.0.2.2 interface 2 weight 1",
               "label 16 protocol 186: [] via fe80::b089:ccff:fe6c:2529 interface 2 weight 1"}));
}

} // namespace

} // namespace RecordedWeightsTest
