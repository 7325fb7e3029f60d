#include <gtest/gtest.h>

#include "FpmEvents.h"
#include "FpmRecordings.h"

namespace RecordedVrfsTest {

// What zebra 8.4.4 sent of the VRFs red (device 3, table 10, red0 is interface 4 in it) and blue
// (device 5, table 1000, interface 6); interface 2 leads to the core (tests/data/fpm/README.md).
namespace {

using namespace TestSupport::Fpm;

TEST(RecordedVrfs, routesAreInTheTableOfTheDevice) {
    EXPECT_EQ(
        linesOf(recorded("vrf_routes")),
        (Lines{"203.0.113.0/24 table 10 protocol 196: [] via 198.51.100.2 interface 4 weight 1",
               "203.0.113.0/24 table 1000 protocol 196: [] via 198.51.100.6 interface 6 weight 1",
               "203.0.114.0/24 table 10 protocol 196: blackhole",
               "2001:db8:100::/48 table 10 protocol 196: [] via 2001:db8:a::2 interface 4 weight 1",
               "203.0.115.0/24 table 30 protocol 196: [] via 192.0.2.2 interface 2 weight 1"}));
}

TEST(RecordedVrfs, aRouteIntoAnotherVrfHasAnInterfaceThereOrTheDeviceItself) {
    EXPECT_EQ(
        linesOf(recorded("vrf_leaked_routes")),
        (Lines{
            "203.0.116.0/24 table 10 protocol 196: [] via 192.0.2.2 interface 2 weight 1",
            "203.0.117.0/24 table 254 protocol 196: [] via 198.51.100.2 interface 4 weight 1",
            "203.0.118.0/24 table 254 protocol 196: [] interface 3 weight 1",
            "203.0.119.0/24 table 10 protocol 196: [16/500] via 192.0.2.2 interface 2 weight 1"}));
}

TEST(RecordedVrfs, labelsLeadToTheDevice) {
    EXPECT_EQ(linesOf(recorded("vrf_labels")),
              (Lines{"label 16 protocol 186: [] interface 3 weight 1",
                     "label 17 protocol 186: [] interface 3 weight 1",
                     "label 18 protocol 186: [] interface 5 weight 1",
                     "label 19 protocol 186: [] interface 5 weight 1"}));
}

// zebra leaves out the next hop of the IPv6 route, which is an IPv4 address.
TEST(RecordedVrfs, routesOverTheCoreHaveTheTransportLabelAndTheVpns) {
    EXPECT_EQ(
        linesOf(recorded("vpn_routes")),
        (Lines{"203.0.120.0/24 table 10 protocol 186: [16/16] via 192.0.2.2 interface 2 weight 1",
               "2001:db8:120::/64 table 10 protocol 186: [16/17] interface 2 weight 1"}));
}

TEST(RecordedVrfs, anImportedConnectedRouteHasTheInterfaceInTheOtherVrfAndNoGateway) {
    EXPECT_EQ(
        linesOf(recorded("vrf_imports")),
        (Lines{
            "198.51.100.0/30 table 1000 protocol 186: [] interface 4 weight 1",
            "203.0.120.0/24 table 1000 protocol 186: [16/16] via 192.0.2.2 interface 2 weight 1"}));
}

TEST(RecordedVrfs, withdrawalsNameTheTable) {
    EXPECT_EQ(linesOf(recorded("vrf_withdrawals")),
              (Lines{"203.0.113.0/24 table 10 withdrawn", "2001:db8:100::/48 table 10 withdrawn",
                     "label 18 withdrawn"}));
}

TEST(RecordedVrfs, aRemovedDeviceWithdrawsItsRoutesAndLabels) {
    EXPECT_EQ(linesOf(recorded("vrf_gone")),
              (Lines{"198.51.100.0/30 table 10 withdrawn",
                     "2001:db8:a::/64 table 10 withdrawn",
                     "fe80::/64 table 10 withdrawn",
                     "198.51.100.0/30 table 254 protocol 2: [] interface 4 weight 1",
                     "0.0.0.0/0 table 10 protocol 2: unreachable",
                     "::/0 table 10 protocol 2: unreachable",
                     "0.0.0.0/0 table 1000 protocol 2: unreachable",
                     "::/0 table 1000 protocol 2: unreachable",
                     "0.0.0.0/0 table 10 withdrawn",
                     "203.0.114.0/24 table 10 withdrawn",
                     "203.0.116.0/24 table 10 withdrawn",
                     "203.0.119.0/24 table 10 withdrawn",
                     "203.0.120.0/24 table 10 withdrawn",
                     "::/0 table 10 withdrawn",
                     "2001:db8:120::/64 table 10 withdrawn",
                     "label 16 withdrawn",
                     "label 17 withdrawn",
                     "0.0.0.0/0 table 1000 protocol 2: unreachable",
                     "::/0 table 1000 protocol 2: unreachable",
                     "203.0.117.0/24 table 254 withdrawn",
                     "203.0.118.0/24 table 254 withdrawn",
                     "198.51.100.0/30 table 1000 withdrawn",
                     "fe80::/64 table 254 protocol 2: [] interface 2 weight 1"}));
}

TEST(RecordedVrfs, theFirstDumpHasTheVrfsButNoOtherTables) {
    EXPECT_EQ(
        linesOf(recorded("vrf_full_dump")),
        (Lines{"label 19 protocol 186: [] interface 5 weight 1",
               "label 18 protocol 186: [] interface 5 weight 1",
               "label 17 protocol 186: [] interface 3 weight 1",
               "label 16 protocol 186: [] interface 3 weight 1",
               "10.255.0.1/32 table 254 protocol 2: [] interface 1 weight 1",
               "10.255.0.2/32 table 254 protocol 196: [16] via 192.0.2.2 interface 2 weight 1",
               "192.0.2.0/30 table 254 protocol 2: [] interface 2 weight 1",
               "203.0.117.0/24 table 254 protocol 196: [] via 198.51.100.2 interface 4 weight 1",
               "203.0.118.0/24 table 254 protocol 196: [] interface 3 weight 1",
               "2001:db8::/64 table 254 protocol 2: [] interface 2 weight 1",
               "fe80::/64 table 254 protocol 2: [] interface 2 weight 1",
               "0.0.0.0/0 table 10 protocol 2: unreachable",
               "198.51.100.0/30 table 10 protocol 2: [] interface 4 weight 1",
               "203.0.113.0/24 table 10 protocol 196: [] via 198.51.100.2 interface 4 weight 1",
               "203.0.114.0/24 table 10 protocol 196: blackhole",
               "203.0.116.0/24 table 10 protocol 196: [] via 192.0.2.2 interface 2 weight 1",
               "203.0.119.0/24 table 10 protocol 196: [16/500] via 192.0.2.2 interface 2 weight 1",
               "203.0.120.0/24 table 10 protocol 186: [16/16] via 192.0.2.2 interface 2 weight 1",
               "::/0 table 10 protocol 2: unreachable",
               "2001:db8:a::/64 table 10 protocol 2: [] interface 4 weight 1",
               "2001:db8:100::/48 table 10 protocol 196: [] via 2001:db8:a::2 interface 4 weight 1",
               "2001:db8:120::/64 table 10 protocol 186: [16/17] interface 2 weight 1",
               "fe80::/64 table 10 protocol 2: [] interface 4 weight 1",
               "0.0.0.0/0 table 1000 protocol 2: unreachable",
               "198.51.100.0/30 table 1000 protocol 186: [] interface 4 weight 1",
               "198.51.100.4/30 table 1000 protocol 2: [] interface 6 weight 1",
               "203.0.113.0/24 table 1000 protocol 196: [] via 198.51.100.6 interface 6 weight 1",
               "203.0.120.0/24 table 1000 protocol 186: [16/16] via 192.0.2.2 interface 2 weight 1",
               "::/0 table 1000 protocol 2: unreachable",
               "2001:db8:b::/64 table 1000 protocol 2: [] interface 6 weight 1",
               "fe80::/64 table 1000 protocol 2: [] interface 6 weight 1"}));
}

} // namespace

} // namespace RecordedVrfsTest
