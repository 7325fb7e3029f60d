#include "lifecycle/MplsRoutingSupportedReactor.h"

#include "LifecycleTesting.h"

namespace MplsRoutingSupportedReactorTest {

namespace {

using namespace Ovix;
using Mpls::Hardware::Capability;
using TestSupport::Listener;

const std::vector<Tessel::AttrId> allEight{
    Capability::mplsSupportedAttr,
    Capability::mplsIntfCfgSupportedAttr,
    Capability::mplsForwardIntoNexthopGroupSupportedAttr,
    Capability::mplsEntropyLabelSupportedAttr,
    Capability::mplsMultiLabelTerminationSupportedAttr,
    Capability::mplsMulticastSupportedAttr,
    Capability::mplsMvpnSupportedAttr,
    Capability::mplsStaticVrfLabelSupportedAttr,
};

class RoutingSupported : public ::testing::Test {
  protected:
    RoutingSupported() { capability->subscribe(written); }
    ~RoutingSupported() override { capability->unsubscribe(written); }

    /// Takes the flags back, so that writing them again would be heard.
    void forget() {
        capability->mplsSupportedIs(false);
        capability->mplsIntfCfgSupportedIs(false);
        capability->mplsForwardIntoNexthopGroupSupportedIs(false);
        capability->mplsEntropyLabelSupportedIs(false);
        capability->mplsMultiLabelTerminationSupportedIs(false);
        capability->mplsMulticastSupportedIs(false);
        capability->mplsMvpnSupportedIs(false);
        capability->mplsStaticVrfLabelSupportedIs(false);
        written.heard.clear();
    }

    Ptr<Capability> capability = Tessel::make<Capability>();
    Ptr<RoutingCapabilities> capabilities = Tessel::make<RoutingCapabilities>();
    Listener written;
};

using Ids = std::vector<Tessel::AttrId>;

/// The reactor as the plugin keeps it.
class RoutingSupportedReactorOfThePlugin : public TestSupport::LifecycleFixture {
  protected:
    Ptr<RoutingCapabilities> routing() const { return manager->routingCapabilities(); }
};

} // namespace

TEST_F(RoutingSupported, IsAnnouncedAtOnceWithEightFlagsInOrder) {
    capabilities->routingSupportedIs(true);
    const auto reactor = mplsRoutingSupportedReactorFactory(capability, capabilities);
    EXPECT_EQ(written.heard, allEight);
    EXPECT_TRUE(capability->mplsSupported());
    EXPECT_TRUE(capability->mplsIntfCfgSupported());
    EXPECT_TRUE(capability->mplsForwardIntoNexthopGroupSupported());
    EXPECT_TRUE(capability->mplsEntropyLabelSupported());
    EXPECT_TRUE(capability->mplsMultiLabelTerminationSupported());
    EXPECT_TRUE(capability->mplsMulticastSupported());
    EXPECT_TRUE(capability->mplsMvpnSupported());
    EXPECT_TRUE(capability->mplsStaticVrfLabelSupported());
    EXPECT_FALSE(capability->mplsFragNeededIcmpTunnelingSupported());
    EXPECT_EQ(reactor->capability(), capability);
    EXPECT_EQ(reactor->routingCapabilities(), capabilities);
}

TEST_F(RoutingSupported, IsAnnouncedWhenTheSupportComesLater) {
    const auto reactor =
        MplsRoutingSupportedReactor::MplsRoutingSupportedReactorIs(capability, capabilities);
    EXPECT_TRUE(reactor->hasNotificationActive());
    EXPECT_TRUE(written.heard.empty());
    capabilities->routingSupportedIs(true);
    EXPECT_EQ(written.heard, allEight);
}

TEST_F(RoutingSupported, NeedsACapabilityToAnnounceItBy) {
    EXPECT_DEATH(mplsRoutingSupportedReactorFactory(nullptr, capabilities),
                 "Assertion.*capability_");
}

TEST_F(RoutingSupported, StaysAnnouncedWhenTheSupportIsWithdrawn) {
    capabilities->routingSupportedIs(true);
    const auto reactor = mplsRoutingSupportedReactorFactory(capability, capabilities);
    written.heard.clear();
    capabilities->routingSupportedIs(false);
    EXPECT_TRUE(written.heard.empty());
    EXPECT_TRUE(capability->mplsSupported());
    EXPECT_TRUE(capability->mplsStaticVrfLabelSupported());
}

TEST_F(RoutingSupported, OtherAttributesAreNotReactedTo) {
    capabilities->routingSupportedIs(true);
    const auto reactor = mplsRoutingSupportedReactorFactory(capability, capabilities);
    forget();
    capabilities->publish(RoutingCapabilities::routingSupportedAttr + 1);
    EXPECT_TRUE(written.heard.empty());
    capabilities->publish(RoutingCapabilities::routingSupportedAttr);
    EXPECT_EQ(written.heard, allEight);
}

TEST_F(RoutingSupported, AZombieReactsNoMoreUntilItIsResumed) {
    const auto reactor = mplsRoutingSupportedReactorFactory(capability, capabilities);
    reactor->zelDoZombieReactors(true);
    capabilities->routingSupportedIs(true);
    EXPECT_TRUE(written.heard.empty());
    reactor->zelDoZombieReactors(false);
    EXPECT_TRUE(written.heard.empty());
    capabilities->publish(RoutingCapabilities::routingSupportedAttr);
    EXPECT_EQ(written.heard, allEight);
}

TEST_F(RoutingSupported, NothingIsHeardWhileNotificationsAreOffOrOnceItIsGone) {
    auto reactor = mplsRoutingSupportedReactorFactory(capability, capabilities);
    reactor->hasNotificationActiveIs(false);
    EXPECT_FALSE(reactor->hasNotificationActive());
    capabilities->routingSupportedIs(true);
    EXPECT_TRUE(written.heard.empty());
    reactor->hasNotificationActiveIs(true);
    reactor.reset();
    capabilities->publish(RoutingCapabilities::routingSupportedAttr);
    EXPECT_TRUE(written.heard.empty());
}

TEST_F(RoutingSupportedReactorOfThePlugin, IsRebuiltOnlyForOtherArguments) {
    Listener listener;
    plugin->subscribe(listener);
    const auto first = plugin->routingSupportedReactorIs(capability, routing());
    EXPECT_TRUE(first->hasNotificationActive());
    EXPECT_EQ(plugin->routingSupportedReactor(), first);
    EXPECT_EQ(plugin->routingSupportedReactorIs(capability, routing()), first);
    EXPECT_EQ(listener.heard, Ids{MplsOvixPlugin::routingSupportedReactorAttr});
    const auto second = plugin->routingSupportedReactorIs(Tessel::make<Capability>(), routing());
    EXPECT_NE(second, first);
    const auto third = plugin->routingSupportedReactorIs(second->capability(),
                                                         Tessel::make<RoutingCapabilities>());
    EXPECT_NE(third, second);
    EXPECT_EQ(listener.heard, Ids(3, MplsOvixPlugin::routingSupportedReactorAttr));
    plugin->unsubscribe(listener);
}

TEST_F(RoutingSupportedReactorOfThePlugin, IsSwitchedOffBeforeItIsLetGo) {
    const auto reactor = plugin->routingSupportedReactorIs(capability, routing());
    std::vector<bool> activeWhenPublished;
    const TestSupport::Watcher watcher(*plugin, [&](Tessel::AttrId) {
        activeWhenPublished.push_back(reactor->hasNotificationActive());
    });
    EXPECT_EQ(plugin->routingSupportedReactorDel(), reactor);
    EXPECT_FALSE(plugin->routingSupportedReactorDel());
    EXPECT_FALSE(plugin->routingSupportedReactor());
    EXPECT_EQ(activeWhenPublished, std::vector<bool>{false});
    routing()->routingSupportedIs(true);
    EXPECT_FALSE(capability->mplsMulticastSupported());
}

TEST_F(RoutingSupportedReactorOfThePlugin, IsSwitchedOffWhenThePluginGoes) {
    activate();
    const auto reactor = plugin->routingSupportedReactor();
    plugin.reset();
    EXPECT_FALSE(reactor->hasNotificationActive());
}

TEST_F(RoutingSupportedReactorOfThePlugin, AnnouncesTheRestWhenThePluginTurnsActive) {
    Listener written;
    capability->subscribe(written);
    routing()->routingSupportedIs(true);
    activate();
    EXPECT_EQ(written.heard,
              (Ids{Capability::mplsFragNeededIcmpTunnelingSupportedAttr,
                   Capability::mplsStaticVrfLabelSupportedAttr, Capability::mplsMvpnSupportedAttr,
                   Capability::mplsSupportedAttr, Capability::mplsIntfCfgSupportedAttr,
                   Capability::mplsForwardIntoNexthopGroupSupportedAttr,
                   Capability::mplsEntropyLabelSupportedAttr,
                   Capability::mplsMultiLabelTerminationSupportedAttr,
                   Capability::mplsMulticastSupportedAttr}));
    capability->unsubscribe(written);
}

} // namespace MplsRoutingSupportedReactorTest
