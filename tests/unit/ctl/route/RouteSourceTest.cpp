#include "route/RouteSource.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "route/RoutePrinting.h"

namespace RouteSourceTest {

namespace {

using OvixCtl::Entry;
using OvixCtl::RouteSource;
using Lines = std::vector<std::string>;

class RouteSourceTest : public testing::Test {
  protected:
    ~RouteSourceTest() override { unlink(file_.c_str()); }

    /// The entries of a text, as lines; the last one is what was refused, if anything was.
    Lines read(const std::string& text, const std::string& refuseIt = {}) {
        std::ofstream(file_) << text;
        Lines lines;
        interfaces_.clear();
        const auto source = RouteSource::open(file_);
        EXPECT_TRUE(source);
        const auto done = source.value().read(
            [&](const Entry& entry, double part) -> Tessel::Result<void> {
                EXPECT_TRUE(part > 0 && part <= 1);
                const std::string line = routeText(entry, OvixCtl::IntfText());
                if (!refuseIt.empty() && line.find(refuseIt) == 0) {
                    return Tessel::Refused{"is not wanted"};
                }
                lines.push_back(line);
                return {};
            },
            [&](const std::string& name) { interfaces_.push_back(name); });
        if (!done) {
            const std::string& what = done.refused().what;
            EXPECT_EQ(what.find(file_), 0U) << what;
            lines.push_back(what.substr(std::min(what.size(), file_.size())));
        }
        return lines;
    }

    Lines interfaces_;

  private:
    std::string file_ = "/tmp/ovix-routes-" + std::to_string(getpid());
};

} // namespace

TEST_F(RouteSourceTest, LinesAreAsShowPrintsThem) {
    EXPECT_EQ(
        read("# what show prints\n"
             "\n"
             "decap 99 owner fpm vrf red payload auto\n"
             "  100 as 200 via inet 10.0.2.2\t\n"
             "  # another comment\n"
             "101 vrf #red\n"
             "# waits for operator: transit 100 as to 300 via inet 10.0.2.2\n"
             "hardware 100 adjacency 100 derived\r\n"
             "mvpn 7 vlan 100"),
        (Lines{"decap 99 owner fpm vrf red payload auto", "transit 100 as to 200 via inet 10.0.2.2",
               "decap 101 vrf #red payload auto", "transit 100 as to 300 via inet 10.0.2.2",
               "hardware 100 adjacency 100 derived", "mvpn 7 vlan 100"}));
}

TEST_F(RouteSourceTest, AConfigurationIsKnownByItsFirstKey) {
    const std::string ports = "ports:\n  - {name: west, mac: 02:00:00:00:00:01}\n";
    EXPECT_EQ(read("# a comment\n---\n" + ports +
                   "lfib:\n  decap:\n    - {label: 100, type: ip-lookup, via: {vrf: red}}\n"
                   "mvpn: [{vrf-id: 7, vlan: 100}]\n"),
              (Lines{"decap 100 owner file vrf red payload auto", "mvpn 7 vlan 100"}));
    EXPECT_EQ(interfaces_, Lines{"west"});
}

TEST_F(RouteSourceTest, AnErrorNamesTheLine) {
    EXPECT_EQ(
        read("100 via inet 10.0.0.1\n\n101 via inet 10.0.0.1 frob\n102 dev a\n"),
        (Lines{"transit 100 via inet 10.0.0.1",
               ":3: \"frob\" is not expected here; known: table, multicast, type, owner, "
               "preference, flags, tail, nexthop, as, push, via, dev, weight, fec, ttl, tc, ..."}));
}

TEST_F(RouteSourceTest, ALabelThatNoTableMayHoldIsRefused) {
    EXPECT_EQ(read("3 via inet 10.0.0.1\n"),
              Lines{":1: label 3 (implicit null) never stands in a frame (RFC 3032 section 2.1)"});
}

TEST_F(RouteSourceTest, WhatIsRefusedNamesTheLineAndTheEntry) {
    EXPECT_EQ(
        read("100 via inet 10.0.0.1\n101 via inet 10.0.0.1\n", "transit 101"),
        (Lines{"transit 100 via inet 10.0.0.1", ":2: label 101 in table transit: is not wanted"}));
}

TEST_F(RouteSourceTest, AnEmptyFileIsRefusedAndDoesNotMeanNoRoutes) {
    EXPECT_EQ(read(""), Lines{":1: ports: missing (the file is empty)"});
    EXPECT_EQ(read("# nothing\n"), Lines{":1: ports: missing (the file is empty)"});
}

TEST_F(RouteSourceTest, AFileThatCannotBeReadIsRefusedByName) {
    EXPECT_EQ(RouteSource::open("/nonexistent").refused().what,
              "/nonexistent: cannot be opened: No such file or directory");
}

} // namespace RouteSourceTest
