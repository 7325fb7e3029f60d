#include "LifecycleTesting.h"
#include "Ovix/routing/RewriteInfo.h"
#include "counting/LfibCounterAction.h"

namespace ActivationTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

class Activation : public LifecycleFixture {
  protected:
    explicit Activation(const std::string& systemName = "activation")
        : LifecycleFixture(systemName) {}

    void mount() {
        plugin->mountsComplete(entities);
        plugin->setupPluginManager();
    }
    /// Counts a packet of a label in the process-wide collection.
    static void count(std::uint32_t label) {
        LfibCounterActionImpl::fromInfo(Tessel::make<LfibCounterActionInfo>(key(label), 64U))
            ->apply(nullptr);
    }
};

TEST_F(Activation, IsWhatTheAgentSeesOfThePlugin) {
    mount();
    EXPECT_FALSE(plugin->mplsRoutingHandler());
    EXPECT_FALSE(plugin->hwStatusViaHelper());
    EXPECT_FALSE(plugin->lfibStatusSm());
    EXPECT_FALSE(plugin->clearLfibCountersSm());
    EXPECT_FALSE(manager->routingHandlers()->handler("Mpls"));
    EXPECT_TRUE(manager->pktCounterCollectionHolder()->collections().empty());
    EXPECT_FALSE(capability->mplsSupported());
}

TEST_F(Activation, BeginsWithItsOwnSignature) {
    mount();
    bool nothingDone = true;
    listenToTrace([&] { nothingDone = nothingDone && !capability->mplsSupported(); });
    plugin->activeInit();
    EXPECT_TRUE(nothingDone);
    ASSERT_FALSE(lines.empty());
    expectSignature(lines[0], "Ovix::MplsOvixPlugin::activeInit", ")");
}

TEST_F(Activation, AnnouncesTheCapabilitiesInOrder) {
    mount();
    using Capability = Mpls::Hardware::Capability;
    Listener listener;
    capability->subscribe(listener);
    plugin->activeInit();
    capability->unsubscribe(listener);
    ASSERT_GE(listener.heard.size(), 4U);
    listener.heard.resize(4);
    EXPECT_EQ(listener.heard,
              (std::vector<Tessel::AttrId>{Capability::mplsFragNeededIcmpTunnelingSupportedAttr,
                                           Capability::mplsStaticVrfLabelSupportedAttr,
                                           Capability::mplsMvpnSupportedAttr,
                                           Capability::mplsSupportedAttr}));
}

TEST_F(Activation, RegistersItsViaHandlersBeforeItAnnouncesAnything) {
    mount();
    const auto& registry = plugin->mplsViaTypeHandlerRegistry();
    const auto before = registry->handler(Mpls::LfibViaType::ip);
    bool renewed = true;
    bool announcedFirst = false;
    const Watcher flags(*capability, [&](Tessel::AttrId) {
        renewed = renewed && registry->handler(Mpls::LfibViaType::ip) != before;
    });
    const Watcher attributes(*plugin, [&](Tessel::AttrId id) {
        announcedFirst = announcedFirst || (id == 6 && capability->mplsSupported());
    });
    plugin->activeInit();
    EXPECT_TRUE(renewed);
    EXPECT_TRUE(announcedFirst);
}

TEST_F(Activation, BuildsInOrderAndHooksInWhenFramesCanBeHandled) {
    mount();
    std::vector<Tessel::AttrId> order;
    bool openTooEarly = false;
    bool openInTheEnd = false;
    const Watcher watcher(*plugin, [&](Tessel::AttrId id) {
        order.push_back(id);
        const bool open = static_cast<bool>(manager->routingHandlers()->handler("Mpls"));
        const bool counting = !manager->pktCounterCollectionHolder()->collections().empty();
        if (id == 6 || id == 1 || id == 3 || id == 12) {
            openTooEarly = openTooEarly || open || counting;
        }
        if (id == 13) {
            openInTheEnd = open && counting && static_cast<bool>(plugin->lfibStatusSm());
        }
    });
    plugin->activeInit();
    std::vector<Tessel::AttrId> known;
    std::copy_if(order.begin(), order.end(), std::back_inserter(known), [](Tessel::AttrId id) {
        return id == 6 || id == 1 || id == 3 || id == 12 || id == 13;
    });
    EXPECT_EQ(known, (std::vector<Tessel::AttrId>{6, 1, 3, 12, 13}));
    EXPECT_FALSE(openTooEarly);
    EXPECT_TRUE(openInTheEnd);
}

TEST_F(Activation, BuildsItsPartsFromTheStateFound) {
    activate();
    EXPECT_EQ(plugin->mplsRoutingHandler()->plugin(), plugin.get());
    EXPECT_EQ(plugin->mvpnIntfStatus().get(), mvpn.get());
    EXPECT_EQ(plugin->hwStatusViaHelper()->ethIntfStatusDir().get(), interfaces.get());
    EXPECT_EQ(plugin->hwStatusViaHelper()->mvpnIntfStatus().get(), mvpn.get());
    EXPECT_EQ(plugin->lfibStatusSm()->lfibStatus().get(), writers[transit]->status().get());
    EXPECT_EQ(plugin->lfibStatusSm()->counterCollection(), plugin->lfibCounterCollection());
    EXPECT_EQ(plugin->clearLfibCountersSm()->counterCollection(), plugin->lfibCounterCollection());
    EXPECT_EQ(plugin->clearLfibCountersSm()->requests(), manager->clearCountersRequests());
    EXPECT_TRUE(plugin->lfibStatusSm()->hasNotificationActive());
    EXPECT_TRUE(plugin->clearLfibCountersSm()->hasNotificationActive());
}

TEST_F(Activation, MakesItsCollectionTheOneThatCounterActionsCountIn) {
    activate();
    count(100);
    ASSERT_NE(plugin->lfibCounterCollection()->counter(key(100)), nullptr);
    EXPECT_EQ(plugin->lfibCounterCollection()->counter(key(100))->bytes(), 64U);
    const auto first = plugin->lfibCounterCollection();
    const auto second = plugin->lfibCounterCollectionIs("Other");
    count(101); // not active with it yet
    EXPECT_EQ(second->size(), 0U);
    plugin->activeInit();
    count(102);
    EXPECT_EQ(first->size(), 2U);
    EXPECT_EQ(second->size(), 1U);
    EXPECT_EQ(plugin->lfibStatusSm()->counterCollection(), second);
}

TEST_F(Activation, WithoutACollectionWatchesTheTransitTableAndCountsNothing) {
    mount();
    plugin->lfibCounterCollectionDel();
    plugin->activeInit();
    ASSERT_TRUE(plugin->lfibStatusSm());
    EXPECT_EQ(plugin->lfibStatusSm()->counterCollection(), nullptr);
    EXPECT_TRUE(plugin->lfibStatusSm()->hasNotificationActive());
    EXPECT_TRUE(manager->pktCounterCollectionHolder()->collections().empty());
    swapRoute(transit, 100, 300);
    writers[transit]->routeDel(key(100));
    manager->clearCountersRequests()->requestClearAll();
    count(100);
    EXPECT_FALSE(plugin->lfibCounterCollection());
}

TEST_F(Activation, RepeatedReusesWhatWasBuiltOfTheSame) {
    activate();
    const auto collection = plugin->lfibCounterCollection();
    const auto helper = plugin->hwStatusViaHelper();
    const auto clearReactor = plugin->clearLfibCountersSm();
    const auto tables = plugin->lfibTables();
    const auto registry = plugin->mplsViaTypeHandlerRegistry();
    Listener listener;
    plugin->subscribe(listener);
    plugin->mountsComplete(entities);
    plugin->setupPluginManager();
    plugin->activeInit();
    plugin->unsubscribe(listener);
    EXPECT_TRUE(listener.heard.empty()) << ::testing::PrintToString(listener.heard);
    EXPECT_EQ(plugin->lfibCounterCollection(), collection);
    EXPECT_EQ(plugin->hwStatusViaHelper(), helper);
    EXPECT_EQ(plugin->clearLfibCountersSm(), clearReactor);
    EXPECT_EQ(plugin->lfibTables(), tables);
    EXPECT_EQ(plugin->mplsViaTypeHandlerRegistry(), registry);
    EXPECT_EQ(manager->pktCounterCollectionHolder()->collections().size(), 1U);
}

/// Which tables an active plugin has.
class SharedTables : public Activation {
  protected:
    SharedTables() : Activation("shared tables") {}

    using Held = std::array<const void*, 6>;
    /// In order of the fixture's paths; last the multicast-VPN interface status.
    Held held() const {
        const MplsLfibTables& tables = *plugin->lfibTables();
        return {tables.decapLfib().get(),      tables.evpnEthernetSegmentFilterLfib().get(),
                tables.pseudowireLfib().get(), tables.evpnEtreeLeafLabelLfib().get(),
                tables.transitLfib().get(),    plugin->mvpnIntfStatus().get()};
    }
    Held offered() const {
        Held all{};
        for (std::size_t i = 0; i < writers.size(); ++i) {
            all[i] = writers[i]->status().get();
        }
        all[5] = mvpn.get();
        return all;
    }
    void expectWithout(std::size_t missing) {
        Held expected = offered();
        expected[missing] = nullptr;
        EXPECT_EQ(held(), expected) << missing;
    }
};

TEST_F(SharedTables, AreTakenIntoTheSlotsOfTheirNames) {
    activate();
    EXPECT_EQ(held(), offered());
}

TEST_F(SharedTables, ThatAreAbsentOrOfAnotherTypeLeaveOnlyTheirSlotEmpty) {
    activate();
    for (std::size_t i = 0; i < 6; ++i) {
        const std::string path(i < 5 ? std::string_view(paths[i])
                                     : Routing::Multicast::MvpnIntfStatus::mountPath);
        const Ptr<Tessel::Entity> table =
            i < 5 ? Ptr<Tessel::Entity>(writers[i]->status()) : Ptr<Tessel::Entity>(mvpn);
        const Ptr<Tessel::Entity> stranger =
            i < 5 ? Ptr<Tessel::Entity>(mvpn) : Ptr<Tessel::Entity>(writers[0]->status());
        shared->tableDel(path);
        plugin->activeInit();
        expectWithout(i);
        shared->tableIs(path, table);
        plugin->activeInit();
        EXPECT_EQ(held(), offered());
        shared->tableIs(path, stranger);
        plugin->activeInit();
        expectWithout(i);
        shared->tableIs(path, table);
        plugin->activeInit();
    }
}

TEST_F(SharedTables, StayAsTheyWereWithoutASourceOfThem) {
    mount();
    plugin->lfibTables()->evpnEtreeLeafLabelLfibIs(writers[decap]->status());
    plugin->mvpnIntfStatusIs(mvpn);
    manager->shmEntitySourceIs(nullptr);
    plugin->activeInit();
    EXPECT_EQ(held(), (Held{nullptr, nullptr, nullptr, writers[decap]->status().get(), nullptr,
                            mvpn.get()}));
    EXPECT_TRUE(manager->routingHandlers()->handler("Mpls"));
}

TEST_F(SharedTables, AreNotMissedAloud) {
    mount();
    listenToTrace();
    plugin->activeInit();
    const std::size_t withAll = std::exchange(lines, {}).size();
    for (const char* path : paths) {
        shared->tableDel(path);
    }
    shared->tableDel(Routing::Multicast::MvpnIntfStatus::mountPath);
    plugin->activeInit();
    EXPECT_EQ(lines.size(), withAll);
    EXPECT_TRUE(counters->counters().empty());
    EXPECT_TRUE(routeFrame(mplsFrame({{100}}, udpPacket(0x0a090001)))->nexthops()->empty());
}

} // namespace

} // namespace ActivationTest
