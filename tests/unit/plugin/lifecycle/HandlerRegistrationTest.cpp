#include "LifecycleTesting.h"
#include "Ovix/rewrite/MplsRewrites.h"
#include "Ovix/routing/RewriteInfo.h"
#include "Tessel/Singletons.h"
#include "counting/LfibCounterAction.h"
#include "counting/LfibReactors.h"
#include "handlers/MplsIpViaTypeHandler.h"

namespace HandlerRegistrationTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

class HandlerRegistration : public LifecycleFixture {
  protected:
    Ptr<MplsIpViaTypeHandler> ipHandler() const {
        return Tessel::ptrCast<MplsIpViaTypeHandler>(
            plugin->mplsViaTypeHandlerRegistry()->handler(Mpls::LfibViaType::ip));
    }
};

TEST_F(HandlerRegistration, TheRegistryIsMadeWhenThereIsNoneAndFoundWhenThereIs) {
    auto& singletons = Tessel::Singletons::instance();
    singletons.singletonDel(MplsViaTypeHandlerRegistry::entityTypeName);
    Listener listener;
    plugin->subscribe(listener);
    plugin->setupPluginManager();
    const auto registry = plugin->mplsViaTypeHandlerRegistry();
    ASSERT_TRUE(registry);
    EXPECT_EQ(singletons.find(MplsViaTypeHandlerRegistry::entityTypeName), registry);
    EXPECT_FALSE(registry->handler(Mpls::LfibViaType::ip));
    plugin->setupPluginManager();
    EXPECT_EQ(plugin->mplsViaTypeHandlerRegistry(), registry);
    plugin->unsubscribe(listener);
    EXPECT_EQ(listener.heard, std::vector<Tessel::AttrId>{11});
}

TEST_F(HandlerRegistration, TheIpHandlerServesItsTypeFromThePluginsTablesAndCounters) {
    activate();
    const auto handler = ipHandler();
    ASSERT_TRUE(handler);
    EXPECT_EQ(handler->viaType(), Mpls::LfibViaType{1});
    EXPECT_EQ(handler->lfibTables(), plugin->lfibTables());
    EXPECT_EQ(handler->counterCollection(), plugin->lfibCounterCollection());
}

TEST_F(HandlerRegistration, ALaterChangeOfThePluginReachesOnlyHandlersRegisteredAfterIt) {
    activate();
    const auto handler = ipHandler();
    const auto tables = plugin->lfibTables();
    const auto collection = plugin->lfibCounterCollection();
    plugin->lfibTablesDel();
    plugin->lfibTablesIs();
    plugin->lfibCounterCollectionIs("Other");
    EXPECT_EQ(ipHandler(), handler);
    EXPECT_EQ(handler->lfibTables(), tables);
    EXPECT_EQ(handler->counterCollection(), collection);
    plugin->doRegisterMplsViaTypeHandlers();
    EXPECT_NE(ipHandler(), handler);
    EXPECT_EQ(ipHandler()->lfibTables(), plugin->lfibTables());
    EXPECT_EQ(ipHandler()->counterCollection(), plugin->lfibCounterCollection());
    EXPECT_EQ(handler->references(), 1U);
}

TEST_F(HandlerRegistration, HandlersOfOtherTypesAreLeftAlone) {
    plugin->setupPluginManager();
    struct Stranger : MplsViaTypeHandler {
        Stranger() : MplsViaTypeHandler(Mpls::LfibViaType{200}) {}
        ProcessingResult processMplsVia(const Ptr<MplsContext>&) override { return 1; }
    };
    const auto stranger = Tessel::make<Stranger>();
    plugin->mplsViaTypeHandlerRegistry()->doRegisterMplsViaTypeHandler(stranger);
    activate();
    EXPECT_EQ(plugin->mplsViaTypeHandlerRegistry()->handler(Mpls::LfibViaType{200}), stranger);
    EXPECT_FALSE(plugin->mplsViaTypeHandlerRegistry()->handler(Mpls::LfibViaType::none));
    EXPECT_FALSE(plugin->mplsViaTypeHandlerRegistry()->handler(Mpls::LfibViaType{2}));
}

TEST_F(HandlerRegistration, FactoriesAndCreatorsBuildWhatTheyAreGiven) {
    const auto tables = Tessel::make<MplsLfibTables>();
    const auto collection = Tessel::make<Counter::OvixLfibCounterCollection>("Made");
    const auto requests = manager->clearCountersRequests();
    const Mpls::LfibViaType type{42};
    for (const auto& handler :
         {mplsIpViaTypeHandlerFactory(type, tables, collection),
          MplsIpViaTypeHandler::MplsIpViaTypeHandlerIs(type, tables, collection)}) {
        EXPECT_EQ(handler->viaType(), type);
        EXPECT_EQ(handler->lfibTables(), tables);
        EXPECT_EQ(handler->counterCollection(), collection);
    }
    for (const auto& reactor : {clearLfibCountersSmFactory(collection, requests),
                                ClearLfibCountersSm::ClearLfibCountersSmIs(collection, requests)}) {
        EXPECT_EQ(reactor->counterCollection(), collection);
        EXPECT_EQ(reactor->requests(), requests);
    }
    const auto info = Tessel::make<LfibCounterActionInfo>(key(100), 64U);
    lfibCounterActionImplFactory(collection, info)->apply(nullptr);
    LfibCounterActionImpl::LfibCounterActionImplIs(collection, info)->apply(nullptr);
    EXPECT_EQ(collection->counter(key(100))->packets(), 2U);
    EXPECT_EQ(mplsOvixPluginFactory("Named")->name(), "Named");
}

TEST_F(HandlerRegistration, RewriteRecordsAreBoundToWhatImplementsThem) {
    const auto map = Tessel::make<RewriteInfoImplMap>();
    MplsOvixPlugin::addRewriteMaps(map);
    const Lumo::UnboundedMplsLabelOperation operation;
    const auto mode = Mpls::TtlMode::uniform;
    const struct {
        const char* name;
        Ptr<RewriteInfo> info;
        const char* impl;
    } rows[] = {
        {"MplsSwap", Tessel::make<MplsSwapRewriteInfo>(operation, mode), "MplsSwapRewriteImpl"},
        {"MplsPop", Tessel::make<MplsPopRewriteInfo>(Mpls::PayloadType::ipv4, mode),
         "MplsPopRewriteImpl"},
        {"MplsIpPush", Tessel::make<MplsIpPushRewriteInfo>(operation, mode),
         "MplsIpPushRewriteImpl"},
        {"MplsTtl", Tessel::make<MplsTtlRewriteInfo>(), "MplsTtlRewriteImpl"},
    };
    for (const auto& row : rows) {
        const auto fn = map->rewriteFn(Tessel::TypeName(row.name));
        ASSERT_NE(fn, nullptr) << row.name;
        EXPECT_EQ(fn(row.info)->name(), row.impl);
        EXPECT_EQ(fn(row.info)->baseInfo().get(), row.info.get());
        EXPECT_EQ(map->counterActionFn(Tessel::TypeName(row.name)), nullptr) << row.name;
    }
    const auto countFn = map->counterActionFn(Tessel::TypeName("LfibCounterActionInfo"));
    ASSERT_NE(countFn, nullptr);
    EXPECT_EQ(countFn(Tessel::make<LfibCounterActionInfo>(key(100), 64U))->name(),
              "LfibCounterActionImpl");
    EXPECT_EQ(map->rewriteFn(Tessel::TypeName("LfibCounterActionInfo")), nullptr);
}

} // namespace

} // namespace HandlerRegistrationTest
