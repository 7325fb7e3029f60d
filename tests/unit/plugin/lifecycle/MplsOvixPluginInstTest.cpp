#include "lifecycle/MplsOvixPluginInst.h"

#include "LifecycleTesting.h"

namespace MplsOvixPluginInstTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

class PluginInst : public LifecycleFixture {
  protected:
    // One more than the instance that the library itself has.
    OvixMplsPluginInst inst;
};

TEST_F(PluginInst, HasNoMainObjectUntilItIsStarted) {
    EXPECT_FALSE(inst.plugin());
    inst.init(pluginContext.get());
    ASSERT_TRUE(inst.plugin());
    EXPECT_EQ(inst.plugin()->name(), "Mpls");
}

TEST_F(PluginInst, GivesTheMainObjectTheContextAndItsStateDatabase) {
    const auto contextReferences = pluginContext->references();
    inst.init(pluginContext.get());
    EXPECT_EQ(inst.plugin()->pluginCtx(), pluginContext);
    EXPECT_EQ(pluginContext->references(), contextReferences + 1);
    EXPECT_EQ(inst.plugin()->entityManager(), entities);
    EXPECT_EQ(inst.plugin()->manager(), manager);
    EXPECT_EQ(pluginContext->plugins().back(), inst.plugin().get());
}

TEST_F(PluginInst, DoesNothingElseWhenItIsStarted) {
    inst.init(pluginContext.get());
    EXPECT_FALSE(inst.plugin()->mplsRoutingInfo());
    EXPECT_FALSE(inst.plugin()->mplsViaTypeHandlerRegistry());
    EXPECT_FALSE(inst.plugin()->mplsRoutingHandler());
    EXPECT_FALSE(manager->routingHandlers()->handler("Mpls"));
    EXPECT_TRUE(manager->pktCounterCollectionHolder()->collections().empty());
    EXPECT_FALSE(capability->mplsSupported());
}

TEST_F(PluginInst, SaysLastThatThePluginIsLoaded) {
    bool ready = false;
    listenToTrace([&] {
        ready = inst.plugin() && inst.plugin()->pluginCtx() == pluginContext &&
                inst.plugin()->entityManager() == entities;
    });
    inst.init(pluginContext.get());
    EXPECT_TRUE(ready);
    ASSERT_EQ(lines.size(), 1U);
    expectSignature(lines[0], "Ovix::OvixMplsPluginInst::init", ") loaded Mpls plugin");
    EXPECT_EQ(lastOfTheRing(), "Routing::Mpls " + std::get<2>(lines[0]));
}

TEST_F(PluginInst, StartedAgainReleasesTheFirstMainObjectButDoesNotDestroyIt) {
    inst.init(pluginContext.get());
    const Ptr<MplsOvixPlugin> first = inst.plugin();
    EXPECT_EQ(first->references(), 2U);
    inst.init(pluginContext.get());
    EXPECT_NE(inst.plugin(), first);
    EXPECT_EQ(first->references(), 1U);
    EXPECT_TRUE(first->lfibCounterCollection());
    EXPECT_NE(first->lfibCounterCollection(), inst.plugin()->lfibCounterCollection());
}

TEST_F(PluginInst, TakesItsMainObjectWithIt) {
    const Counter::OvixLfibCounterCollection* parentless = nullptr;
    Ptr<Counter::OvixLfibCounterCollection> collection;
    {
        OvixMplsPluginInst shortLived;
        shortLived.init(pluginContext.get());
        collection = shortLived.plugin()->lfibCounterCollection();
        parentless = collection.get();
        EXPECT_NE(collection->parent(), nullptr);
    }
    EXPECT_EQ(parentless->parent(), nullptr);
    EXPECT_EQ(collection->references(), 1U);
}

} // namespace

} // namespace MplsOvixPluginInstTest
