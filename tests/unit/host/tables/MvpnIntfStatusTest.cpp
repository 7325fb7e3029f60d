#include "Routing/Multicast/MvpnIntfStatus.h"

#include <gtest/gtest.h>
#include <vector>

#include "Tessel/Exceptions.h"

namespace {

using Routing::Multicast::MvpnIntfStatus;
using Routing::Multicast::MvpnVrfIntfId;

const Lumo::IntfId vlan100 = Lumo::VlanIntfId::vlanIdToIntfId(100);

class Listener : public Tessel::Subscriber {
  public:
    void attributeChanged(const Tessel::Entity&, Tessel::AttrId, std::uint64_t key) override {
        heard.push_back(key);
    }
    std::vector<std::uint64_t> heard;
};

TEST(MvpnIntfStatus, GivesTheEntryOfTheVrfOrTheDefaultOne) {
    MvpnIntfStatus status;
    EXPECT_EQ(status.vrfIntfId({7}), MvpnVrfIntfId());
    status.vrfIntfIdIs({7}, vlan100);
    status.vrfIntfIdIs({0}, Lumo::IntfId("east"));
    EXPECT_EQ(status.vrfIntfId({7}), (MvpnVrfIntfId{{7}, vlan100}));
    EXPECT_EQ(status.vrfIntfId({0}), (MvpnVrfIntfId{{0}, Lumo::IntfId("east")}));
    EXPECT_EQ(status.vrfIntfId({0xffffffff}), MvpnVrfIntfId());
    status.vrfIntfIdDel({7});
    EXPECT_EQ(status.vrfIntfId({7}), MvpnVrfIntfId());
}

TEST(MvpnIntfStatus, TellsOfChangesAlone) {
    MvpnIntfStatus status;
    Listener listener;
    status.subscribe(listener);
    status.vrfIntfIdIs({7}, vlan100);
    status.vrfIntfIdIs({7}, vlan100);
    status.vrfIntfIdIs({7}, Lumo::IntfId("east"));
    status.vrfIntfIdDel({8});
    status.vrfIntfIdDel({7});
    status.unsubscribe(listener);
    EXPECT_EQ(listener.heard, (std::vector<std::uint64_t>{7, 7, 7}));
}

TEST(MvpnIntfStatus, AnEntryOfAnotherVrfIsCorruption) {
    MvpnIntfStatus status;
    status.entryIs({7}, {{8}, vlan100});
    EXPECT_THROW(status.vrfIntfId({7}), Tessel::CorruptionDetected);
    EXPECT_EQ(status.corruptionsDetected(), 0U);
    status.doCorruptionDetected("torn");
    EXPECT_EQ(status.corruptionsDetected(), 1U);
    EXPECT_EQ(status.lastCorruption(), "torn");
}

} // namespace
