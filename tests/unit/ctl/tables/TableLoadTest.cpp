#include "tables/TableLoad.h"

#include "CtlTables.h"
#include "Refusal.h"

namespace TableLoadTest {

namespace {

using namespace CtlTesting;
using Mpls::RouteOwner;
using OvixCtl::TableLoad;

class TableLoadTest : public testing::Test {
  protected:
    /// Loads lines as the routes of files; "A added, C changed, R removed", or what was refused.
    std::string load(const std::vector<std::string>& lines) {
        TableLoad load(tables.publisher(), RouteOwner::file);
        for (const std::string& line : lines) {
            const auto parsed = OvixCtl::parseEntry(words(line));
            EXPECT_TRUE(parsed) << line;
            for (const std::string& name : parsed.value().interfaces) {
                tables.publisher().interfaces().intfId(name);
            }
            if (const auto done = load.add(parsed.value().entry); !done) {
                tables.publisher().discard();
                return done.refused().what;
            }
        }
        load.finish();
        tables.commit();
        const auto& counts = load.counts();
        return std::to_string(counts.added) + " added, " + std::to_string(counts.changed) +
               " changed, " + std::to_string(counts.removed) + " removed";
    }
    /// All lines, those of routes that wait in brackets.
    std::vector<std::string> shown() const {
        std::vector<std::string> lines;
        const OvixCtl::TableView view = tables.view();
        for (std::size_t i = 0; i < OvixCtl::entryTables; ++i) {
            const auto table = static_cast<Mpls::TableId>(i);
            for (const std::uint32_t key : view.keys(table).keys) {
                lines.push_back(routeText(view.entry(table, key), tables.names()));
            }
        }
        for (const OvixCtl::Entry& entry : view.waiting()) {
            lines.push_back("(" + routeText(entry, tables.names()) + ")");
        }
        return lines;
    }

    Tables tables;
};

using Lines = std::vector<std::string>;

} // namespace

TEST_F(TableLoadTest, RoutesOfOtherOwnersStay) {
    EXPECT_EQ(tables.change("decap 50 owner fpm dev a"), "");
    EXPECT_EQ(tables.change("decap 51 dev a"), "");
    EXPECT_EQ(load({"decap 51 dev b", "decap 52 dev b owner file"}),
              "2 added, 0 changed, 0 removed");
    EXPECT_EQ(shown(), (Lines{"decap 50 owner fpm dev a", "decap 51 dev a",
                              "decap 52 owner file dev b", "(decap 51 owner file dev b)"}));
    EXPECT_EQ(load({"decap 50 dev b"}), "1 added, 0 changed, 2 removed");
    EXPECT_EQ(shown(),
              (Lines{"decap 50 owner file dev b", "decap 51 dev a", "(decap 50 owner fpm dev a)"}));
    EXPECT_EQ(load({}), "0 added, 0 changed, 1 removed");
    EXPECT_EQ(shown(), (Lines{"decap 50 owner fpm dev a", "decap 51 dev a"}));
}

TEST_F(TableLoadTest, LinesOfOtherOwnersAreLeftOut) {
    EXPECT_EQ(tables.change("decap 50 owner fpm dev a"), "");
    EXPECT_EQ(tables.change("decap 51 owner file dev a"), "");
    tables.commit();
    EXPECT_EQ(load(shown()), "0 added, 0 changed, 0 removed");
    EXPECT_EQ(tables.change("decap 53 dev a"), "");
    tables.commit();
    EXPECT_EQ(load({"decap 51 owner file dev a", "decap 53 dev a"}),
              "0 added, 0 changed, 0 removed");
    EXPECT_EQ(load({"decap 51 owner file dev a", "decap 53 dev b"}),
              "1 added, 0 changed, 0 removed");
    EXPECT_EQ(load({"decap 51 owner 7 dev a", "decap 52 owner pseudowires dev a"}),
              "0 added, 0 changed, 2 removed");
    EXPECT_EQ(shown(), (Lines{"decap 50 owner fpm dev a", "decap 53 dev a"}));
}

TEST_F(TableLoadTest, WhatIsEqualIsNotWrittenAgain) {
    const Lines lines{"decap 50 dev a", "transit 100 as 200 dev a", "adjacency 5 dev a",
                      "hardware 60 adjacency 5", "mvpn 7 vlan 100"};
    EXPECT_EQ(load(lines), "5 added, 0 changed, 0 removed");
    const auto generation = tables.publisher().tables().generation();
    EXPECT_EQ(load(lines), "0 added, 0 changed, 0 removed");
    EXPECT_EQ(tables.publisher().tables().generation(), generation);
    EXPECT_EQ(load({"decap 50 dev b", "transit 100 as 201 dev a", "adjacency 5 dev b",
                    "hardware 60 adjacency 5 unprogrammed", "mvpn 7 vlan 101"}),
              "0 added, 5 changed, 0 removed");
    EXPECT_EQ(load({}), "0 added, 0 changed, 5 removed");
    EXPECT_EQ(shown(), Lines{});
}

TEST_F(TableLoadTest, WhatShowPrintsIsLoadedToTheSame) {
    EXPECT_EQ(load({"transit 100 as 200 dev a", "adjacency 5 dev a", "hardware 60 adjacency 5"}),
              "3 added, 0 changed, 0 removed");
    const Lines all = shown();
    EXPECT_EQ(all, (Lines{"transit 100 owner file as to 200 dev a", "hardware 60 adjacency 5",
                          "hardware 100 adjacency 100 derived", "adjacency 5 dev a",
                          "adjacency 100 as to 200 dev a"}));
    EXPECT_EQ(load(all), "0 added, 0 changed, 0 removed");
    EXPECT_EQ(shown(), all);
}

TEST_F(TableLoadTest, AnAdjacencyTakesItsIdFromADerivedOne) {
    EXPECT_EQ(tables.change("transit 100 owner fpm as 200 dev a"), "");
    EXPECT_EQ(load({"adjacency 100 dev b", "hardware 60 adjacency 100"}),
              "2 added, 0 changed, 0 removed");
    EXPECT_EQ(shown(), (Lines{"transit 100 owner fpm as to 200 dev a", "hardware 60 adjacency 100",
                              "hardware 100 adjacency 1048575 derived", "adjacency 100 dev b",
                              "adjacency 1048575 as to 200 dev a"}));
}

TEST_F(TableLoadTest, ALabelThatThePlatformLosesIsForwardedByItsTransitRoute) {
    EXPECT_EQ(load({"adjacency 5 dev b", "hardware 100 adjacency 5"}),
              "2 added, 0 changed, 0 removed");
    EXPECT_EQ(tables.change("transit 100 owner fpm as 200 dev a"), "");
    EXPECT_EQ(load({}), "0 added, 0 changed, 2 removed");
    EXPECT_EQ(shown(),
              (Lines{"transit 100 owner fpm as to 200 dev a", "hardware 100 adjacency 100 derived",
                     "adjacency 100 as to 200 dev a"}));
}

TEST_F(TableLoadTest, AHardwareRouteThroughNoAdjacencyIsRefused) {
    EXPECT_EQ(TestSupport::refusal([&] { load({"hardware 90 adjacency 55"}); }),
              "label 90 in table hardware: there is no adjacency 55");
}

TEST_F(TableLoadTest, ALabelThatComesTwiceIsRefused) {
    EXPECT_EQ(load({"decap 50 dev a", "decap 50 dev b"}), "is there already");
    EXPECT_EQ(load({"adjacency 5 dev a", "adjacency 5 dev b"}), "is there already");
    EXPECT_EQ(shown(), Lines{});
}

} // namespace TableLoadTest
