#include "LifecycleTesting.h"
#include "State/ClearCounters.h"

namespace AttributesTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

using Ids = std::vector<Tessel::AttrId>;

class Attributes : public LifecycleFixture {
  protected:
    Attributes() { plugin->subscribe(listener); }
    ~Attributes() override { plugin->unsubscribe(listener); }

    Ids heard() { return std::exchange(listener.heard, {}); }
    static Ptr<Counter::ClearCountersRequests> newQueue() {
        return Tessel::make<Counter::ClearCountersRequests>();
    }
    Ptr<const Mpls::LfibStatus> lfib(Table table) const { return writers[table]->status(); }

    /// A plain setter: each value publishes once, and so does emptying it.
    template <typename T>
    Ptr<T> newOne() const {
        if constexpr (std::is_same_v<T, Routing::Multicast::MvpnIntfStatus>) {
            return Tessel::make<T>(labelTables->reader);
        } else {
            return Tessel::make<T>();
        }
    }
    template <typename T, typename Set, typename Get>
    void expectPlain(Tessel::AttrId id, Set set, Get get) {
        const Ptr<T> first = newOne<T>();
        const Ptr<T> second = newOne<T>();
        EXPECT_EQ(get().get(), nullptr) << id;
        set(nullptr);
        EXPECT_EQ(heard(), Ids{}) << id;
        set(first);
        EXPECT_EQ(get().get(), first.get()) << id;
        EXPECT_EQ(heard(), Ids{id});
        set(first);
        EXPECT_EQ(heard(), Ids{}) << id;
        set(second);
        EXPECT_EQ(get().get(), second.get()) << id;
        EXPECT_EQ(heard(), Ids{id});
        EXPECT_EQ(first->references(), 1U) << id;
        set(nullptr);
        EXPECT_EQ(get().get(), nullptr) << id;
        EXPECT_EQ(heard(), Ids{id});
    }

    Listener listener;
};

TEST_F(Attributes, AreEmptyAtFirstButForTablesHolderAndCollection) {
    EXPECT_FALSE(plugin->mplsRoutingHandler());
    EXPECT_FALSE(plugin->hwStatusViaHelper());
    EXPECT_FALSE(plugin->mvpnIntfStatus());
    EXPECT_FALSE(plugin->mplsRoutingInfo());
    EXPECT_FALSE(plugin->mplsHardwareCapability());
    EXPECT_FALSE(plugin->ethIntfStatusDir());
    EXPECT_FALSE(plugin->mplsViaTypeHandlerRegistry());
    EXPECT_FALSE(plugin->lfibStatusSm());
    EXPECT_FALSE(plugin->clearLfibCountersSm());
    const MplsLfibTables& tables = *plugin->lfibTables();
    EXPECT_FALSE(tables.decapLfib());
    EXPECT_FALSE(tables.evpnEthernetSegmentFilterLfib());
    EXPECT_FALSE(tables.transitLfib());
    EXPECT_FALSE(tables.pseudowireLfib());
    EXPECT_FALSE(tables.evpnEtreeLeafLabelLfib());
    EXPECT_FALSE(tables.hardwareStatus());
}

TEST_F(Attributes, SetPlainlyPublishEveryChangeUnderTheirNumber) {
    expectPlain<Routing::Multicast::MvpnIntfStatus>(
        6, [&](auto value) { plugin->mvpnIntfStatusIs(value); },
        [&] { return plugin->mvpnIntfStatus(); });
    expectPlain<Mpls::RoutingInfo>(
        7, [&](auto value) { plugin->mplsRoutingInfoIs(value); },
        [&] { return plugin->mplsRoutingInfo(); });
    expectPlain<Mpls::Hardware::Capability>(
        8, [&](auto value) { plugin->mplsHardwareCapabilityIs(value); },
        [&] { return plugin->mplsHardwareCapability(); });
    expectPlain<Interface::EthIntfStatusDir>(
        9, [&](auto value) { plugin->ethIntfStatusDirIs(value); },
        [&] { return plugin->ethIntfStatusDir(); });
    expectPlain<MplsViaTypeHandlerRegistry>(
        11, [&](auto value) { plugin->mplsViaTypeHandlerRegistryIs(value); },
        [&] { return plugin->mplsViaTypeHandlerRegistry(); });
}

TEST_F(Attributes, TheRoutingHandlerIsRebuiltOnlyForAnotherPlugin) {
    const auto handler = plugin->mplsRoutingHandlerIs(plugin.get());
    EXPECT_EQ(handler->name(), "Mpls");
    EXPECT_EQ(handler->plugin(), plugin.get());
    EXPECT_EQ(heard(), Ids{1});
    EXPECT_EQ(plugin->mplsRoutingHandlerIs(plugin.get()), handler);
    EXPECT_EQ(heard(), Ids{});
    const auto other = mplsOvixPluginFactory("Mpls");
    const auto another = plugin->mplsRoutingHandlerIs(other.get());
    EXPECT_NE(another, handler);
    EXPECT_EQ(another->plugin(), other.get());
    EXPECT_EQ(plugin->mplsRoutingHandler(), another);
    EXPECT_EQ(std::as_const(*plugin).mplsRoutingHandler(), another);
    EXPECT_EQ(heard(), Ids{1});
    EXPECT_EQ(plugin->mplsRoutingHandlerDel(), another);
    EXPECT_FALSE(plugin->mplsRoutingHandler());
    EXPECT_EQ(heard(), Ids{1});
}

TEST_F(Attributes, TheViaHelperIsRebuiltWhenEitherArgumentDiffers) {
    const auto helper = plugin->hwStatusViaHelperIs(interfaces, mvpn);
    EXPECT_EQ(helper->ethIntfStatusDir().get(), interfaces.get());
    EXPECT_EQ(helper->mvpnIntfStatus().get(), mvpn.get());
    EXPECT_EQ(heard(), Ids{3});
    EXPECT_EQ(plugin->hwStatusViaHelperIs(interfaces, mvpn), helper);
    EXPECT_EQ(heard(), Ids{});
    EXPECT_NE(plugin->hwStatusViaHelperIs(nullptr, mvpn), helper);
    EXPECT_EQ(heard(), Ids{3});
    const auto neither = plugin->hwStatusViaHelperIs(nullptr, nullptr);
    EXPECT_FALSE(neither->mvpnIntfStatus());
    EXPECT_EQ(plugin->hwStatusViaHelper(), neither);
    EXPECT_EQ(heard(), Ids{3});
    EXPECT_EQ(plugin->hwStatusViaHelperDel(), neither);
    EXPECT_FALSE(plugin->hwStatusViaHelper());
    EXPECT_FALSE(plugin->hwStatusViaHelperDel());
    EXPECT_EQ(heard(), Ids{3});
}

TEST_F(Attributes, TheTablesHolderIsBuiltOnlyWhenThereIsNone) {
    const auto tables = plugin->lfibTables();
    EXPECT_EQ(plugin->lfibTablesIs(), tables);
    EXPECT_EQ(heard(), Ids{});
    EXPECT_EQ(plugin->lfibTablesDel(), tables);
    EXPECT_FALSE(plugin->lfibTables());
    EXPECT_EQ(heard(), Ids{10});
    EXPECT_FALSE(plugin->lfibTablesDel());
    EXPECT_EQ(heard(), Ids{});
    const auto renewed = plugin->lfibTablesIs();
    EXPECT_NE(renewed, tables);
    EXPECT_EQ(plugin->lfibTables(), renewed);
    EXPECT_EQ(heard(), Ids{10});
}

TEST_F(Attributes, TheCounterCollectionIsRebuiltOnlyForAnotherName) {
    const auto first = plugin->lfibCounterCollection();
    EXPECT_EQ(plugin->lfibCounterCollectionDel(), first);
    EXPECT_FALSE(plugin->lfibCounterCollection());
    EXPECT_FALSE(plugin->lfibCounterCollectionDel());
    EXPECT_EQ(heard(), Ids{0});
    const auto again = plugin->lfibCounterCollectionIs("LfibCounters");
    EXPECT_NE(again, first);
    EXPECT_EQ(again->name(), "LfibCounters");
    EXPECT_EQ(again->parent(), plugin.get());
    EXPECT_EQ(heard(), Ids{0});
}

TEST_F(Attributes, ANewCounterCollectionBelongsToThePluginWhenItIsPublished) {
    struct OwnerSeen : Tessel::Subscriber {
        void attributeChanged(const Tessel::Entity& entity, Tessel::AttrId,
                              std::uint64_t) override {
            owner = static_cast<const MplsOvixPlugin&>(entity).lfibCounterCollection()->parent();
        }
        const Tessel::Entity* owner = nullptr;
    } seen;
    plugin->subscribe(seen);
    plugin->lfibCounterCollectionIs("Other");
    plugin->unsubscribe(seen);
    EXPECT_EQ(seen.owner, plugin.get());
}

TEST_F(Attributes, TheLfibReactorIsRebuiltWhenEitherArgumentDiffers) {
    const auto collection = plugin->lfibCounterCollection();
    const auto first = plugin->lfibStatusSmIs(lfib(transit), collection);
    EXPECT_EQ(first->lfibStatus(), lfib(transit));
    EXPECT_EQ(first->counterCollection(), collection);
    EXPECT_EQ(heard(), Ids{12});
    EXPECT_EQ(plugin->lfibStatusSmIs(lfib(transit), collection), first);
    EXPECT_EQ(heard(), Ids{});
    EXPECT_NE(plugin->lfibStatusSmIs(lfib(decap), collection), first);
    const auto last = plugin->lfibStatusSmIs(lfib(decap), nullptr);
    EXPECT_EQ(last->counterCollection(), nullptr);
    EXPECT_TRUE(last->hasNotificationActive());
    EXPECT_EQ(heard(), (Ids{12, 12}));
}

TEST_F(Attributes, TheClearReactorIsRebuiltWhenEitherArgumentDiffers) {
    const auto collection = plugin->lfibCounterCollection();
    const auto queue = newQueue();
    const auto first = plugin->clearLfibCountersSmIs(collection, queue);
    EXPECT_EQ(first->counterCollection(), collection);
    EXPECT_EQ(first->requests(), queue);
    EXPECT_TRUE(first->hasNotificationActive());
    EXPECT_EQ(heard(), Ids{13});
    EXPECT_EQ(plugin->clearLfibCountersSmIs(collection, queue), first);
    EXPECT_EQ(heard(), Ids{});
    const auto second = plugin->clearLfibCountersSmIs(collection, newQueue());
    EXPECT_NE(second, first);
    EXPECT_TRUE(second->hasNotificationActive());
    const auto third = plugin->clearLfibCountersSmIs(
        Tessel::make<Counter::OvixLfibCounterCollection>("Other"), second->requests());
    EXPECT_NE(third, second);
    EXPECT_EQ(plugin->clearLfibCountersSm(), third);
    EXPECT_EQ(heard(), (Ids{13, 13}));
    EXPECT_EQ(plugin->clearLfibCountersSmDel(), third);
    EXPECT_FALSE(third->hasNotificationActive());
    EXPECT_FALSE(plugin->clearLfibCountersSm());
    EXPECT_EQ(heard(), Ids{13});
}

TEST_F(Attributes, HaveTheirNewValueWhenTheyPublish) {
    std::vector<bool> held;
    const Watcher watcher(*plugin, [&](Tessel::AttrId id) {
        held.push_back(id == 1    ? plugin->mplsRoutingHandler().get() != nullptr
                       : id == 12 ? plugin->lfibStatusSm().get() != nullptr
                                  : plugin->lfibCounterCollection().get() != nullptr);
    });
    plugin->mplsRoutingHandlerIs(plugin.get());
    plugin->lfibStatusSmIs(lfib(transit), nullptr);
    plugin->lfibCounterCollectionIs("Other");
    plugin->mplsRoutingHandlerDel();
    plugin->lfibStatusSmDel();
    plugin->lfibCounterCollectionDel();
    EXPECT_EQ(held, (std::vector<bool>{true, true, true, false, false, false}));
}

TEST_F(Attributes, ReactorsAreSwitchedOffBeforeTheyAreLetGo) {
    const auto lfibReactor = plugin->lfibStatusSmIs(lfib(transit), nullptr);
    const auto clearReactor = plugin->clearLfibCountersSmIs(nullptr, newQueue());
    std::vector<bool> active;
    const Watcher watcher(*plugin, [&](Tessel::AttrId id) {
        active.push_back(id == 12 ? lfibReactor->hasNotificationActive()
                                  : clearReactor->hasNotificationActive());
    });
    plugin->lfibStatusSmDel();
    plugin->clearLfibCountersSmDel();
    EXPECT_EQ(active, (std::vector<bool>{false, false}));
}

} // namespace

} // namespace AttributesTest
