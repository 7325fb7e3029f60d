#include "MplsOvixMulticast/MplsMldpInputStep.h"
#include "MplsOvixMulticast/MplsMulticastIpLookupViaTypeHandler.h"
#include "MplsOvixMulticast/MulticastEvents.h"
#include "MulticastTesting.h"
#include "Ovix/plugin/OvixPlugin.h"

namespace MvpnSfeToggleTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

class MvpnSfe : public MulticastFixture {
  protected:
    MvpnSfe() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }
    ~MvpnSfe() override {
        ToggleService::instance().sourceIs({});
        ::testing::FLAGS_gtest_death_test_style = "fast";
    }
    void SetUp() override {}

    Ptr<MplsMulticastIpLookupViaTypeHandler> handler() const {
        return Tessel::ptrCast<MplsMulticastIpLookupViaTypeHandler>(
            plugin->mplsViaTypeHandlerRegistry()->handler(Mpls::LfibViaType{12}));
    }
};

TEST_F(MvpnSfe, OnTheTypeIsServedAndTheStepIsHookedIn) {
    activate();
    ASSERT_TRUE(handler());
    EXPECT_EQ(handler()->viaType(), Mpls::LfibViaType{12});
    EXPECT_EQ(handler()->lfibTables(), plugin->lfibTables());
    EXPECT_EQ(handler()->ports(), manager->ports());
    const auto step = plugin->mplsMldpInputStep();
    ASSERT_TRUE(step);
    EXPECT_EQ(step->mvpnIntfStatus().get(), mvpn.get());
    EXPECT_EQ(step->ports(), manager->ports());
    EXPECT_EQ(step->packetParser(), manager->packetParser());
    ASSERT_EQ(manager->genericPipelineSteps()->steps().size(), 1U);
    EXPECT_EQ(manager->genericPipelineSteps()->steps()[0], step);
    plugin->activeInit();
    EXPECT_EQ(plugin->mplsMldpInputStep(), step);
    EXPECT_EQ(manager->genericPipelineSteps()->steps().size(), 1U);
}

// The toggle is read once per process, hence one of its own for each answer.

TEST_F(MvpnSfe, OffNothingIsServedButTheCapabilityIsAnnounced) {
    const auto run = [&] {
        ToggleService::instance().sourceIs([](auto, auto, bool) { return false; });
        writers[decap]->multicastIpLookupRouteIs(key(500), tailOn(Lumo::IntfId("east")));
        activate();
        const bool served = handler() || plugin->mplsMldpInputStep() ||
                            !manager->genericPipelineSteps()->steps().empty();
        routeFrame(mplsFrame({{500}}, udpPacket(0xe8010101)));
        const bool reported = counted("Exceptional", "Via type %s handler not found") == 1 &&
                              trace.back() == "Pkt 7: Via type 12 handler not found";
        std::exit(!served && reported && capability->mplsMvpnSupported() ? 0 : 1);
    };
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(0), "");
}

TEST_F(MvpnSfe, TheToggleIsReadOnceByItsNameAndOnByDefault) {
    const auto run = [] {
        static int asked = 0;
        static bool rightly = true;
        ToggleService::instance().sourceIs(
            [](std::string_view file, std::string_view toggle, bool byDefault) {
                ++asked;
                rightly = rightly && file == "MvpnLib.json" && toggle == "MvpnSfe" && byDefault;
                return byDefault;
            });
        const bool first = toggleMvpnSfeEnabled();
        ToggleService::instance().sourceIs([](auto, auto, bool) { return false; });
        std::exit(first && toggleMvpnSfeEnabled() && asked == 1 && rightly ? 0 : 1);
    };
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(0), "");
}

class InputStepAttribute : public MvpnSfe {
  protected:
    InputStepAttribute() { plugin->subscribe(listener); }
    ~InputStepAttribute() override { plugin->unsubscribe(listener); }
    Listener listener;
};

TEST_F(InputStepAttribute, IsRebuiltWhenAnArgumentDiffers) {
    const auto& ports = manager->ports();
    const auto& parser = manager->packetParser();
    const auto first = plugin->mplsMldpInputStepIs(mvpn, ports, parser);
    EXPECT_EQ(plugin->mplsMldpInputStepIs(mvpn, ports, parser), first);
    EXPECT_EQ(listener.heard.size(), 1U);
    const auto otherStatus = plugin->mplsMldpInputStepIs(nullptr, ports, parser);
    EXPECT_NE(otherStatus, first);
    const auto otherPorts = plugin->mplsMldpInputStepIs(nullptr, Tessel::make<Ports>(), parser);
    EXPECT_NE(otherPorts, otherStatus);
    const auto last =
        plugin->mplsMldpInputStepIs(nullptr, otherPorts->ports(), Tessel::make<PacketParser>());
    EXPECT_NE(last, otherPorts);
    EXPECT_EQ(plugin->mplsMldpInputStep(), last);
    EXPECT_EQ(plugin->mplsMldpInputStepDel(), last);
    EXPECT_FALSE(plugin->mplsMldpInputStepDel());
    EXPECT_FALSE(plugin->mplsMldpInputStep());
    EXPECT_EQ(listener.heard, std::vector<Tessel::AttrId>(5, 5));
}

TEST_F(InputStepAttribute, IsBuiltBehindTheHooksAndClearedInItsOrder) {
    activate();
    EXPECT_EQ(std::count(listener.heard.begin(), listener.heard.end(), 5), 1);
    const auto at = [&](Tessel::AttrId id) {
        return std::find(listener.heard.begin(), listener.heard.end(), id);
    };
    EXPECT_LT(at(12), at(5));
    EXPECT_LT(at(5), at(4));
    EXPECT_LT(at(5), at(13));
    listener.heard.clear();
    plugin = mplsOvixPluginFactory("Mpls");
    EXPECT_LT(at(4), at(5));
    EXPECT_LT(at(5), at(10));
    EXPECT_NE(at(10), listener.heard.end());
}

} // namespace

} // namespace MvpnSfeToggleTest
