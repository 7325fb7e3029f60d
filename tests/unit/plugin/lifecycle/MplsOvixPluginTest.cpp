#include "PluginFixture.h"
#include "lifecycle/MplsOvixPluginInst.h"

namespace MplsOvixPluginTest {

namespace {

using namespace Ovix;
using TestSupport::Listener;
using TestSupport::PluginFixture;

class InactivePlugin : public PluginFixture {
  protected:
    InactivePlugin() : PluginFixture("inactive") {}
    void SetUp() override {}
};

using ActivePlugin = PluginFixture;

TEST_F(InactivePlugin, IsBornWithTablesHolderAndCounterCollection) {
    EXPECT_EQ(plugin->name(), "Mpls");
    ASSERT_TRUE(plugin->lfibTables());
    ASSERT_TRUE(plugin->lfibCounterCollection());
    EXPECT_EQ(plugin->lfibCounterCollection()->name(), "LfibCounters");
    EXPECT_EQ(plugin->lfibCounterCollection()->parent(), plugin.get());
    EXPECT_FALSE(plugin->mplsRoutingHandler());
}

TEST_F(InactivePlugin, KeepsTheCollectionOfTheSameNameAndReplacesAnother) {
    Listener listener;
    plugin->subscribe(listener);
    const auto first = plugin->lfibCounterCollection();
    EXPECT_EQ(plugin->lfibCounterCollectionIs("LfibCounters"), first);
    EXPECT_TRUE(listener.heard.empty());
    const auto second = plugin->lfibCounterCollectionIs("Other");
    EXPECT_NE(second, first);
    EXPECT_EQ(first->parent(), nullptr);
    EXPECT_EQ(second->parent(), plugin.get());
    EXPECT_EQ(listener.heard,
              std::vector<Tessel::AttrId>{MplsOvixPlugin::lfibCounterCollectionAttr});
    plugin->unsubscribe(listener);
}

TEST_F(InactivePlugin, ClearingAnEmptyAttributePublishesNothing) {
    Listener listener;
    plugin->subscribe(listener);
    EXPECT_FALSE(plugin->mplsRoutingHandlerDel());
    EXPECT_FALSE(plugin->lfibStatusSmDel());
    EXPECT_FALSE(plugin->clearLfibCountersSmDel());
    EXPECT_TRUE(listener.heard.empty());
    const auto held = plugin->lfibCounterCollection();
    EXPECT_EQ(plugin->lfibCounterCollectionDel(), held);
    EXPECT_EQ(held->parent(), nullptr);
    EXPECT_EQ(listener.heard.size(), 1U);
    plugin->unsubscribe(listener);
}

TEST_F(InactivePlugin, AttributesAreNumberedInOrderOfDeclaration) {
    EXPECT_EQ(MplsOvixPlugin::lfibCounterCollectionAttr, 0);
    EXPECT_EQ(MplsOvixPlugin::mplsRoutingInfoAttr, 7);
    EXPECT_EQ(MplsOvixPlugin::clearLfibCountersSmAttr, 13);
}

TEST_F(InactivePlugin, PlainSettersPublishOnlyAChange) {
    Listener listener;
    plugin->subscribe(listener);
    plugin->mplsRoutingInfoIs(routingInfo);
    plugin->mplsRoutingInfoIs(routingInfo);
    EXPECT_EQ(listener.heard, std::vector<Tessel::AttrId>{MplsOvixPlugin::mplsRoutingInfoAttr});
    plugin->unsubscribe(listener);
}

TEST_F(InactivePlugin, ReactorsAreRebuiltOnlyForOtherArgumentsAndStopWhenCleared) {
    const auto collection = plugin->lfibCounterCollection();
    const Ptr<const Mpls::LfibStatus> lfib = writers[transit]->status();
    const auto first = plugin->lfibStatusSmIs(lfib, collection);
    EXPECT_TRUE(first->hasNotificationActive());
    EXPECT_EQ(plugin->lfibStatusSmIs(lfib, collection), first);
    const Ptr<const Mpls::LfibStatus> other = writers[decap]->status();
    EXPECT_NE(plugin->lfibStatusSmIs(other, collection), first);
    const auto removed = plugin->lfibStatusSmDel();
    EXPECT_FALSE(removed->hasNotificationActive());
}

TEST_F(InactivePlugin, AReactorThatIsReplacedHearsNothingMoreWhoeverHoldsIt) {
    const auto collection = plugin->lfibCounterCollection();
    const Ptr<const Mpls::LfibStatus> lfib = writers[transit]->status();
    const auto status = plugin->lfibStatusSmIs(lfib, collection);
    EXPECT_TRUE(plugin->lfibStatusSmIs(lfib, nullptr)->hasNotificationActive());
    EXPECT_FALSE(status->hasNotificationActive());

    const auto clearing =
        plugin->clearLfibCountersSmIs(collection, manager->clearCountersRequests());
    EXPECT_TRUE(plugin->clearLfibCountersSmIs(nullptr, manager->clearCountersRequests())
                    ->hasNotificationActive());
    EXPECT_FALSE(clearing->hasNotificationActive());

    const auto supported =
        plugin->routingSupportedReactorIs(capability, Tessel::make<RoutingCapabilities>());
    EXPECT_TRUE(plugin->routingSupportedReactorIs(capability, Tessel::make<RoutingCapabilities>())
                    ->hasNotificationActive());
    EXPECT_FALSE(supported->hasNotificationActive());
}

TEST_F(InactivePlugin, TheMtuExceptionHandlerIsBuiltOnlyWhenThereIsNone) {
    Listener listener;
    plugin->subscribe(listener);
    EXPECT_FALSE(plugin->mplsMtuExceptionHandler());
    const auto handler = plugin->mplsMtuExceptionHandlerIs();
    EXPECT_EQ(handler->name(), "Mpls");
    EXPECT_EQ(plugin->mplsMtuExceptionHandlerIs(), handler);
    EXPECT_EQ(plugin->mplsMtuExceptionHandler(), handler);
    EXPECT_EQ(plugin->mplsMtuExceptionHandlerDel(), handler);
    EXPECT_FALSE(plugin->mplsMtuExceptionHandlerDel());
    EXPECT_FALSE(plugin->mplsMtuExceptionHandler());
    EXPECT_EQ(listener.heard,
              std::vector<Tessel::AttrId>(2, MplsOvixPlugin::mplsMtuExceptionHandlerAttr));
    plugin->unsubscribe(listener);
}

TEST_F(InactivePlugin, BuildsWhatItHooksInInOrder) {
    Listener listener;
    plugin->subscribe(listener);
    activate();
    const std::vector<Tessel::AttrId> order{
        MplsOvixPlugin::mplsRoutingHandlerAttr,      MplsOvixPlugin::mplsMtuExceptionHandlerAttr,
        MplsOvixPlugin::hwStatusViaHelperAttr,       MplsOvixPlugin::lfibStatusSmAttr,
        MplsOvixPlugin::routingSupportedReactorAttr, MplsOvixPlugin::clearLfibCountersSmAttr};
    std::erase_if(listener.heard, [&](Tessel::AttrId id) {
        return std::find(order.begin(), order.end(), id) == order.end();
    });
    EXPECT_EQ(listener.heard, order);
    plugin->unsubscribe(listener);
}

TEST_F(InactivePlugin, AMissingTableLeavesOnlyItsSlotEmpty) {
    shared->tableDel("mpls/pseudowireLfib");
    activate();
    EXPECT_FALSE(plugin->lfibTables()->pseudowireLfib());
    EXPECT_TRUE(plugin->lfibTables()->decapLfib());
    EXPECT_TRUE(plugin->lfibTables()->evpnEthernetSegmentFilterLfib());
    EXPECT_TRUE(plugin->lfibTables()->evpnEtreeLeafLabelLfib());
    EXPECT_TRUE(plugin->lfibTables()->transitLfib());
}

TEST_F(InactivePlugin, ATableOfAnotherTypeIsNotTaken) {
    shared->tableIs("mpls/decapLfib", mvpn);
    activate();
    EXPECT_FALSE(plugin->lfibTables()->decapLfib());
}

TEST_F(InactivePlugin, RoutingInfoOfAnotherTypeStaysEmpty) {
    entities->entityIs("routing/mpls/routingInfo/status", interfaces);
    plugin->mountsComplete(entities);
    EXPECT_FALSE(plugin->mplsRoutingInfo());
    EXPECT_TRUE(plugin->mplsHardwareCapability());
}

TEST_F(InactivePlugin, MountsTheTablesInOrderForReading) {
    plugin->mountsComplete(entities);
    const auto& mounts = shared->mounts();
    ASSERT_EQ(mounts.size(), 6U);
    EXPECT_EQ(mounts[0].path, "mpls/decapLfib");
    EXPECT_EQ(mounts[1].path, "mpls/evpnEthernetSegmentFilterLfib");
    EXPECT_EQ(mounts[2].path, "mpls/evpnEtreeLeafLabelLfib");
    EXPECT_EQ(mounts[3].path, "mpls/pseudowireLfib");
    EXPECT_EQ(mounts[4].path, "mpls/transitLfib");
    EXPECT_EQ(mounts[5].typeName, "Routing::Multicast::MvpnIntfStatus");
    EXPECT_EQ(static_cast<int>(mounts[0].kind), 3);
}

TEST_F(ActivePlugin, AnnouncesWhatItDoesWhenItTurnsActive) {
    EXPECT_TRUE(capability->mplsFragNeededIcmpTunnelingSupported());
    EXPECT_TRUE(capability->mplsStaticVrfLabelSupported());
    EXPECT_TRUE(capability->mplsMvpnSupported());
    EXPECT_TRUE(capability->mplsSupported());
    EXPECT_FALSE(capability->mplsMulticastSupported());
}

TEST_F(ActivePlugin, HooksItselfIntoTheAgent) {
    EXPECT_EQ(manager->routingHandlers()->handler("Mpls"), plugin->mplsRoutingHandler());
    ASSERT_TRUE(plugin->mplsMtuExceptionHandler());
    EXPECT_EQ(manager->mtuExceptionHandlers()->handler("Mpls"), plugin->mplsMtuExceptionHandler());
    EXPECT_EQ(plugin->routingSupportedReactor()->capability(), capability);
    EXPECT_EQ(plugin->routingSupportedReactor()->routingCapabilities(),
              manager->routingCapabilities());
    ASSERT_EQ(manager->pktCounterCollectionHolder()->collections().size(), 1U);
    EXPECT_EQ(manager->pktCounterCollectionHolder()->collections()[0],
              plugin->lfibCounterCollection());
    const auto& map = RewriteInfoImplMapSharedObject::getMap(manager->sharedObjects());
    for (const char* name : {"EthOverMplsRewriteInfo", "ControlWordPushRewriteInfo", "MplsSwap",
                             "MplsPop", "MplsIpPush", "MplsTtl"}) {
        EXPECT_NE(map->rewriteFn(Tessel::TypeName(name)), nullptr) << name;
    }
    EXPECT_NE(map->counterActionFn(Tessel::TypeName("LfibCounterActionInfo")), nullptr);
    EXPECT_EQ(map->rewriteFn(Tessel::TypeName("LfibCounterActionInfo")), nullptr);
}

TEST_F(ActivePlugin, ActivatedAgainKeepsItsObjectsAndRenewsItsHandlers) {
    const auto handler = plugin->mplsRoutingHandler();
    const auto reactor = plugin->lfibStatusSm();
    const auto mtuHandler = plugin->mplsMtuExceptionHandler();
    const auto routingReactor = plugin->routingSupportedReactor();
    const auto viaHandler = plugin->mplsViaTypeHandlerRegistry()->handler(Mpls::LfibViaType::ip);
    plugin->activeInit();
    EXPECT_EQ(plugin->mplsRoutingHandler(), handler);
    EXPECT_EQ(plugin->lfibStatusSm(), reactor);
    EXPECT_EQ(plugin->mplsMtuExceptionHandler(), mtuHandler);
    EXPECT_EQ(plugin->routingSupportedReactor(), routingReactor);
    EXPECT_NE(plugin->mplsViaTypeHandlerRegistry()->handler(Mpls::LfibViaType::ip), viaHandler);
}

TEST_F(ActivePlugin, SharesOneRegistryPerProcess) {
    const auto other = mplsOvixPluginFactory("Other");
    other->setupPluginManager();
    EXPECT_EQ(other->mplsViaTypeHandlerRegistry(), plugin->mplsViaTypeHandlerRegistry());
}

TEST(PluginInstance, RegistersItselfWhenItsLibraryIsLoaded) {
    const auto& loader = Plugin::Loader<PluginContext>::defaultLoader();
    ASSERT_EQ(loader.registrations().size(), 1U);
    EXPECT_EQ(loader.registrations()[0].pluginName, "OvixMplsPlugin");
    EXPECT_EQ(loader.registrations()[0].contextType, loader.contextType());
    EXPECT_EQ(loader.registrations()[0].secondName, "Mpls");
    EXPECT_EQ(loader.registrations()[0].extra, "");
}

TEST_F(InactivePlugin, InitMakesTheMainObjectAndASecondOneReplacesIt) {
    TraceOutput::instance().textLevelOfAllIs(0);
    auto& loader = Plugin::Loader<PluginContext>::defaultLoader();
    const std::size_t before = pluginContext->plugins().size();
    loader.runInitCallers(pluginContext.get());
    ASSERT_EQ(pluginContext->plugins().size(), before + 1);
    EXPECT_EQ(pluginContext->plugins().back()->name(), "Mpls");
    EXPECT_TRUE(trace.back().ends_with(") loaded Mpls plugin")) << trace.back();
    loader.runInitCallers(pluginContext.get());
    EXPECT_EQ(pluginContext->plugins().size(), before + 1);
}

} // namespace

} // namespace MplsOvixPluginTest
