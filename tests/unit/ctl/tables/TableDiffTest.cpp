#include "tables/TableDiff.h"

#include "CtlTables.h"
#include "route/RoutePrinting.h"

namespace TableDiffTest {

using namespace CtlTesting;
using Mpls::RouteOwner;
using OvixCtl::Change;

namespace {

std::vector<Change> changesOf(const Tables& before, const Tables& after,
                              RouteOwner owner = RouteOwner::byHand) {
    return OvixCtl::differences(before.view(), after.view(), owner).changes;
}

std::vector<std::string> linesOf(const Tables& before, const Tables& after) {
    std::vector<std::string> lines;
    for (const Change& change : changesOf(before, after)) {
        if (change.before) {
            lines.push_back("-" + routeText(*change.before, before.names()));
        }
        if (change.after) {
            lines.push_back("+" + routeText(*change.after, after.names()));
        }
    }
    return lines;
}

} // namespace

TEST(TableDiff, FindsAddedChangedAndRemovedEntries) {
    Tables before;
    before.add("1 dev a");
    before.add("2 dev a");
    before.add("5 dev a");
    before.add("5 dev a table decap");
    before.commit();
    Tables after;
    after.add("2 dev b");
    after.add("5 dev a");
    after.add("9 dev a");
    after.commit();
    EXPECT_EQ(linesOf(before, after),
              (std::vector<std::string>{"-decap 5 dev a", "-transit 1 dev a", "-transit 2 dev a",
                                        "+transit 2 dev b", "+transit 9 dev a"}));
    const auto counts = OvixCtl::countsOf(changesOf(before, after));
    EXPECT_EQ(counts.added, 1U);
    EXPECT_EQ(counts.changed, 1U);
    EXPECT_EQ(counts.removed, 2U);
}

TEST(TableDiff, RoutesOfOtherOwnersAreNoDifference) {
    Tables before;
    before.change("1 dev a owner fpm");
    before.change("2 dev a owner fpm");
    before.change("2 dev b owner file"); // waits for neither: it is preferred
    before.change("3 dev a");
    before.change("3 dev b owner file"); // waits for the operator's
    before.commit();
    const Tables after;
    std::vector<std::string> lines;
    for (const Change& change : changesOf(before, after, RouteOwner::file)) {
        ASSERT_TRUE(change.before && !change.after);
        lines.push_back(routeText(*change.before, before.names()));
    }
    EXPECT_EQ(lines, (std::vector<std::string>{"transit 2 owner file dev b",
                                               "transit 3 owner file dev b"}));
}

TEST(TableDiff, WhatStandsElsewhereInMemoryIsTheSame) {
    Tables before;
    before.add("1 nexthop dev a weight 2 nexthop dev b");
    before.add("2 vrf red");
    before.publisher().mvpn().vrfIntfIdIs({7}, Lumo::IntfId("a"));
    before.commit();
    Tables after;
    after.publisher().mvpn().vrfIntfIdIs({7}, Lumo::IntfId("a"));
    after.add("3 dev z");
    after.commit();
    after.publisher()
        .lfib(Mpls::TableId::transitLfib)
        .routeDel(Mpls::RouteKey::fromLabel(Lumo::MplsLabel(3)));
    after.add("2 vrf red");
    after.add("1 nexthop dev a weight 2 nexthop dev b");
    after.commit();
    EXPECT_EQ(linesOf(before, after), std::vector<std::string>{});
}

TEST(TableDiff, EveryPartOfARouteCounts) {
    const char* lines[]{"1 dev a",
                        "1 dev b",
                        "1 dev a weight 2",
                        "1 as 7 dev a",
                        "1 push 7 dev a",
                        "1 as 7/8 dev a",
                        "1 via ::2 dev a",
                        "1 vrf a",
                        "1 vrf b",
                        "1 vrf a payload ipv4",
                        "1 nexthop dev a nexthop dev a"};
    for (const char* one : lines) {
        for (const char* other : lines) {
            const PublishedRoute before(one);
            const PublishedRoute after(other);
            EXPECT_EQ(linesOf(before, after).empty(), one == other) << one << " and " << other;
        }
    }
}

} // namespace TableDiffTest
