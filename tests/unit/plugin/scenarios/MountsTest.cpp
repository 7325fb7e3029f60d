#include "LifecycleTesting.h"

namespace MountsTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

class Mounts : public LifecycleFixture {
  protected:
    struct State {
        const char* path;
        const void* found; ///< what the fixture keeps there
        std::function<const void*(const MplsOvixPlugin&)> held;
    };
    std::vector<State> states() const {
        return {{"routing/mpls/routingInfo/status", static_cast<Tessel::Entity*>(routingInfo.get()),
                 [](const MplsOvixPlugin& p) -> const void* {
                     return static_cast<const Tessel::Entity*>(p.mplsRoutingInfo().get());
                 }},
                {"routing/hardware/mpls/capability", static_cast<Tessel::Entity*>(capability.get()),
                 [](const MplsOvixPlugin& p) -> const void* {
                     return static_cast<const Tessel::Entity*>(p.mplsHardwareCapability().get());
                 }},
                {"routing/hardware/mpls/status", static_cast<Tessel::Entity*>(hardware.get()),
                 [](const MplsOvixPlugin& p) -> const void* {
                     return static_cast<const Tessel::Entity*>(
                         p.lfibTables()->hardwareStatus().get());
                 }},
                {"interface/status/eth/intf", static_cast<Tessel::Entity*>(interfaces.get()),
                 [](const MplsOvixPlugin& p) -> const void* {
                     return static_cast<const Tessel::Entity*>(p.ethIntfStatusDir().get());
                 }}};
    }
    /// All of the state is held but what the path names.
    void expectAllBut(const std::string& path) const {
        for (const State& state : states()) {
            EXPECT_EQ(state.held(*plugin), state.path == path ? nullptr : state.found)
                << state.path << " without " << path;
        }
    }
    using MountRow = std::tuple<std::string, std::string, int>;
    static std::vector<MountRow> mountsOf(const std::string& system, bool local) {
        std::vector<MountRow> rows;
        for (const auto& mount : Tessel::ShmEntityManager::ofSystem(system, local)->mounts()) {
            rows.emplace_back(mount.path, mount.typeName, static_cast<int>(mount.kind));
        }
        return rows;
    }
};

TEST_F(Mounts, TakeTheStateFromItsPaths) {
    plugin->mountsComplete(entities);
    expectAllBut("");
}

TEST_F(Mounts, LeaveEmptyWhatIsAbsentOrOfAnotherTypeAndOnlyThat) {
    const Ptr<Tessel::Entity> stranger = LocalMvpn();
    for (const char* path : {"routing/mpls/routingInfo/status", "routing/hardware/mpls/capability",
                             "routing/hardware/mpls/status", "interface/status/eth/intf"}) {
        const Ptr<Tessel::Entity> kept = entities->entity(path);
        for (const bool absent : {true, false}) {
            plugin->mountsComplete(entities); // so that it is held
            expectAllBut("");
            entities->entityDel(path);
            if (!absent) {
                entities->entityIs(path, stranger);
            }
            plugin->mountsComplete(entities);
            expectAllBut(path);
            entities->entityIs(path, kept);
        }
    }
}

TEST_F(Mounts, PublishTheStateInOrder) {
    Listener listener;
    plugin->subscribe(listener);
    plugin->mountsComplete(entities);
    plugin->unsubscribe(listener);
    EXPECT_EQ(listener.heard, (std::vector<Tessel::AttrId>{7, 8, 9}));
}

TEST_F(Mounts, AreSaidBeforeAnythingIsTaken) {
    bool nothingTaken = false;
    listenToTrace([&] { nothingTaken = !plugin->mplsRoutingInfo(); });
    plugin->mountsComplete(entities);
    EXPECT_TRUE(nothingTaken);
    ASSERT_EQ(lines.size(), 1U);
    expectSignature(lines[0], "Ovix::MplsOvixPlugin::mountsComplete", ")");
    EXPECT_EQ(lastOfTheRing(), "Routing::Mpls " + std::get<2>(lines[0]));
}

TEST_F(Mounts, OnlyAskForTheSharedTables) {
    plugin->mountsComplete(entities);
    const MplsLfibTables& tables = *plugin->lfibTables();
    EXPECT_FALSE(tables.decapLfib());
    EXPECT_FALSE(tables.evpnEthernetSegmentFilterLfib());
    EXPECT_FALSE(tables.transitLfib());
    EXPECT_FALSE(tables.pseudowireLfib());
    EXPECT_FALSE(tables.evpnEtreeLeafLabelLfib());
    EXPECT_FALSE(plugin->mvpnIntfStatus());
}

TEST_F(Mounts, AskTheSystemOfTheStateDatabaseForReading) {
    const std::string lfib = "Mpls::LfibStatus";
    const std::vector<MountRow> all = {{"mpls/decapLfib", lfib, 3},
                                       {"mpls/evpnEthernetSegmentFilterLfib", lfib, 3},
                                       {"mpls/evpnEtreeLeafLabelLfib", lfib, 3},
                                       {"mpls/pseudowireLfib", lfib, 3},
                                       {"mpls/transitLfib", lfib, 3},
                                       {std::string(Routing::Multicast::MvpnIntfStatus::mountPath),
                                        "Routing::Multicast::MvpnIntfStatus", 3}};
    plugin->mountsComplete(Tessel::make<Tessel::EntityManager>("mounts.remote", false));
    EXPECT_EQ(mountsOf("mounts.remote", false), all);
    EXPECT_TRUE(mountsOf("mounts.remote", true).empty());
    plugin->mountsComplete(Tessel::make<Tessel::EntityManager>("mounts.local", true));
    EXPECT_EQ(mountsOf("mounts.local", true), all);
    EXPECT_TRUE(mountsOf("mounts.local", false).empty());
}

TEST_F(Mounts, HaveNothingToDoWithStandbyAndSwitchover) {
    plugin->mountsComplete(entities);
    plugin->setupPluginManager();
    Listener listener;
    plugin->subscribe(listener);
    plugin->standbyInit();
    plugin->switchoverInit();
    plugin->unsubscribe(listener);
    EXPECT_TRUE(listener.heard.empty());
    EXPECT_FALSE(manager->routingHandlers()->handler("Mpls"));
    EXPECT_TRUE(manager->pktCounterCollectionHolder()->collections().empty());
}

} // namespace

} // namespace MountsTest
