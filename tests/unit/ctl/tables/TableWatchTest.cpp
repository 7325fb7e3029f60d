#include "tables/TableWatch.h"

#include "CtlTables.h"
#include "route/RoutePrinting.h"

namespace TableWatchTest {

using namespace CtlTesting;
using Mpls::TableId;
using Kind = OvixCtl::WatchedChange::Kind;

namespace {

class TableWatchTest : public testing::Test, public Tables {
  protected:
    OvixCtl::TableWatch watch() const { return OvixCtl::TableWatch(local.reader); }
    void del(std::uint32_t label) {
        publisher()
            .lfib(TableId::transitLfib)
            .routeDel(Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label)));
    }
    std::vector<std::string> linesOf(OvixCtl::TableWatch& watch) const {
        std::vector<std::string> lines;
        for (const auto& change : watch.look()) {
            const char sign = change.kind == Kind::added     ? '+'
                              : change.kind == Kind::removed ? '-'
                                                             : '~';
            lines.push_back(
                sign + (change.now ? routeText(*change.now, names()) : std::to_string(change.key)));
        }
        return lines;
    }
    using Lines = std::vector<std::string>;
};

} // namespace

TEST_F(TableWatchTest, FindsAddedRemovedAndChangedEntries) {
    add("1 dev a");
    add("2 dev a");
    commit();
    auto watched = watch();
    EXPECT_EQ(linesOf(watched), Lines{});
    add("1 dev b");
    del(2);
    add("3 dev a");
    publisher().commit();
    EXPECT_EQ(linesOf(watched), (Lines{"~transit 1 dev b", "-2", "+transit 3 dev a"}));
    EXPECT_EQ(linesOf(watched), Lines{});
}

TEST_F(TableWatchTest, FindsTheResultOfSeveralGenerations) {
    commit();
    auto watched = watch();
    add("1 dev a");
    publisher().commit();
    add("1 dev b");
    add("2 dev b");
    publisher().commit();
    del(2);
    publisher().commit();
    EXPECT_EQ(linesOf(watched), Lines{"+transit 1 dev b"});
}

TEST_F(TableWatchTest, AMulticastVpnThatMovesToAnotherPlaceHasNotChanged) {
    const std::uint32_t sameHome = (1U << 20U) | (7U ^ 1U); // where VRF 7 is at home, too
    publisher().mvpn().vrfIntfIdIs({7}, Lumo::IntfId("a"));
    publisher().mvpn().vrfIntfIdIs({sameHome}, Lumo::IntfId("a"));
    commit();
    auto watched = watch();
    publisher().mvpn().vrfIntfIdDel({7});
    publisher().commit();
    EXPECT_EQ(linesOf(watched), Lines{"-7"});
}

TEST_F(TableWatchTest, HardwareIsWatchedToo) {
    commit();
    auto watched = watch();
    publisher().hardware().routeIs({Mpls::RouteKey::fromLabel(Lumo::MplsLabel(5)), 9, true});
    publisher().commit();
    EXPECT_EQ(linesOf(watched), Lines{"+hardware 5 adjacency 9 unprogrammed"});
}

} // namespace TableWatchTest
