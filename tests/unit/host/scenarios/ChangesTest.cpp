// Whatever may make void what somebody has kept is noticed, wherever it changes.

#include "Tessel/Changes.h"

#include <gtest/gtest.h>

#include "LocalTables.h"
#include "Ovix/plugin/PluginManager.h"
#include "Ovix/rewrite/MplsRewrites.h"
#include "Ovix/routing/Handlers.h"
#include "Ovix/trace/Trace.h"
#include "State/EthIntfStatusDir.h"
#include "TableTesting.h"

namespace ChangesTest {

using Tessel::Changes;

namespace {

template <typename Change>
bool isNoticed(Change&& change) {
    const std::uint64_t before = Changes::count();
    change();
    return Changes::count() != before;
}

class SilentHandler : public Ovix::RoutingHandler {
  public:
    SilentHandler() : RoutingHandler("Test") {}
    void processPacket(const Ptr<Ovix::RoutingOutput>&, const Ptr<Ovix::RoutingContext>&,
                       const Ptr<Ovix::PacketHeader>&, const Ptr<Ovix::RoutingVrfRoot>&) override {}
};

} // namespace

TEST(ChangesTest, AttributesOfEntitiesAreNoticedWithoutASubscriber) {
    Interface::EthIntfStatusDir interfaces;
    const Lumo::IntfId east("east");
    EXPECT_TRUE(isNoticed([&] { interfaces.intfStatusIs(east, true); }));
    EXPECT_FALSE(isNoticed([&] { interfaces.intfStatusIs(east, true); }));
    EXPECT_TRUE(isNoticed([&] { interfaces.intfStatusIs(east, false); }));
    EXPECT_EQ(interfaces.changes(), 2U);
}

TEST(ChangesTest, TracesAreNoticedAsTheyAreSwitched) {
    Ovix::TraceSource& source = Ovix::TraceSource::named("ChangesTest", "ChangesTest");
    for (const int level : {0, Ovix::TraceSource::off}) {
        EXPECT_TRUE(isNoticed([&] { source.ringLevelIs(level); }));
        EXPECT_TRUE(isNoticed([&] { source.textLevelIs(level); }));
        EXPECT_EQ(Ovix::TraceSource::anyOn(), level == 0);
    }
    EXPECT_FALSE(Ovix::TraceSource::anyOn());
}

TEST(ChangesTest, RewritesAndCounterActionsAreNoticedAsTheyAreBound) {
    Ovix::RewriteInfoImplMap map;
    EXPECT_TRUE(isNoticed([&] { map.mapIs("MplsPop", Ovix::MplsPopRewriteImpl::fromInfo); }));
    EXPECT_TRUE(isNoticed([&] { map.mapIs("MplsPop", nullptr); }));
    EXPECT_TRUE(isNoticed([&] { map.counterMapIs("Lfib", nullptr); }));
    EXPECT_EQ(map.changes(), 3U);
    EXPECT_FALSE(isNoticed([&] { map.rewriteFn(Tessel::TypeName("MplsPop")); }));
}

TEST(ChangesTest, HandlersAreNoticedAsTheyAreAddedOrReplaced) {
    Ovix::RoutingHandlers handlers;
    EXPECT_TRUE(isNoticed([&] { handlers.handlerIs(Tessel::make<SilentHandler>()); }));
    EXPECT_TRUE(isNoticed([&] { handlers.handlerIs(Tessel::make<SilentHandler>()); }));
    EXPECT_EQ(handlers.changes(), 2U);
    EXPECT_FALSE(isNoticed([&] { handlers.handlerIs(nullptr); }));
}

TEST(ChangesTest, ANewGenerationOfTheTablesIsNoticedWhenItIsTaken) {
    TestSupport::LocalTables tables;
    EXPECT_FALSE(isNoticed([&] { tables.published.refresh(); }));
    tables.publisher.hardware().routeIs({TableTesting::key(100), 5, false});
    tables.publisher.commit();
    EXPECT_TRUE(isNoticed([&] { tables.published.refresh(); }));
    EXPECT_FALSE(isNoticed([&] { tables.published.refresh(); }));
}

} // namespace ChangesTest
