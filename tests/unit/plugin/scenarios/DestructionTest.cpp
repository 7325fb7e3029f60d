#include "LifecycleTesting.h"

namespace DestructionTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

class Destruction : public LifecycleFixture {
  protected:
    /// What an active plugin publishes while it is destroyed.
    std::vector<Tessel::AttrId> publishedByTheEnd() {
        std::vector<Tessel::AttrId> heard;
        Watcher watcher(*plugin, [&](Tessel::AttrId id) { heard.push_back(id); });
        plugin.reset();
        watcher.entityIsGone();
        return heard;
    }
};

TEST_F(Destruction, ClearsWhatThePluginBuiltInItsOrder) {
    activate();
    const std::vector<Tessel::AttrId> order = {0, 1, 2, 3, 4, 5, 10, 12, 13};
    EXPECT_EQ(publishedByTheEnd(), order);
}

TEST_F(Destruction, PublishesNothingOfWhatWasNeverBuilt) {
    EXPECT_EQ(publishedByTheEnd(), (std::vector<Tessel::AttrId>{0, 10}));
}

TEST_F(Destruction, IsMarkedBeforeAnythingIsCleared) {
    activate();
    bool marked = true;
    EXPECT_FALSE(plugin->destroying());
    MplsOvixPlugin* dying = plugin.get();
    Watcher watcher(*plugin, [&](Tessel::AttrId) { marked = marked && dying->destroying(); });
    plugin.reset();
    watcher.entityIsGone();
    EXPECT_TRUE(marked);
}

TEST_F(Destruction, StopsReactorsThatSomebodyElseStillHolds) {
    activate();
    const auto lfibReactor = plugin->lfibStatusSm();
    const auto clearReactor = plugin->clearLfibCountersSm();
    const auto collection = plugin->lfibCounterCollection();
    collection->counterCollectionIs(key(100)).countBytes(64);
    swapRoute(transit, 100, 300);
    plugin.reset();
    EXPECT_FALSE(lfibReactor->hasNotificationActive());
    EXPECT_FALSE(clearReactor->hasNotificationActive());
    EXPECT_EQ(collection->parent(), nullptr);
    writers[transit]->routeDel(key(100));
    manager->clearCountersRequests()->requestClearAll();
    ASSERT_NE(collection->counter(key(100)), nullptr);
    EXPECT_EQ(collection->counter(key(100))->packets(), 1U);
}

TEST_F(Destruction, LeavesTheHandlerInTheAgentsList) {
    activate();
    const auto handler = plugin->mplsRoutingHandler();
    plugin.reset();
    EXPECT_EQ(manager->routingHandlers()->handler("Mpls"), handler);
    EXPECT_TRUE(pluginContext->plugins().empty());
}

} // namespace

} // namespace DestructionTest
