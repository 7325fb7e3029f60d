#include "State/MvpnIntfStatus.h"

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include "LocalTables.h"
#include "Tessel/Exceptions.h"

namespace MvpnIntfStatusTest {

namespace {

using Routing::Multicast::MvpnIntfStatus;
using Routing::Multicast::MvpnVrfIntfId;
using TestSupport::LocalMvpn;

const Lumo::IntfId vlan100 = Lumo::VlanIntfId::vlanIdToIntfId(100);

class Listener : public Tessel::Subscriber {
  public:
    void attributeChanged(const Tessel::Entity&, Tessel::AttrId, std::uint64_t key) override {
        heard.push_back(key);
    }
    std::vector<std::uint64_t> heard;
};

TEST(MvpnIntfStatus, GivesTheEntryOfTheVrfOrTheDefaultOne) {
    LocalMvpn writer;
    const MvpnIntfStatus& status = *writer;
    EXPECT_EQ(status.vrfIntfId({7}), MvpnVrfIntfId());
    writer.vrfIntfIdIs({7}, vlan100);
    writer.vrfIntfIdIs({0}, Lumo::IntfId("east"));
    EXPECT_EQ(status.vrfIntfId({7}), (MvpnVrfIntfId{{7}, vlan100}));
    EXPECT_EQ(status.vrfIntfId({0}), (MvpnVrfIntfId{{0}, Lumo::IntfId("east")}));
    EXPECT_EQ(status.vrfIntfId({0xffffffff}), MvpnVrfIntfId());
    writer.vrfIntfIdDel({7});
    EXPECT_EQ(status.vrfIntfId({7}), MvpnVrfIntfId());
}

TEST(MvpnIntfStatus, VrfsThatShareAPlaceAreKeptApart) {
    constexpr std::uint32_t places = 1U << 20U;
    std::vector<std::uint32_t> vrfs{0xffffffff, places - 1, 0};
    for (std::uint32_t i = 0; i < 8; ++i) {
        vrfs.push_back(i * places | (i ^ 7U));           // all of them at 7
        vrfs.push_back(i * places | (i ^ 8U));           // and at its neighbour
        vrfs.push_back(i * places | ((places - 1) ^ i)); // and at the last one
    }
    std::mt19937 random(1);
    LocalMvpn writer;
    const MvpnIntfStatus& status = *writer;
    std::map<std::uint32_t, Lumo::IntfId> expected;
    for (int step = 0; step < 2000; ++step) {
        const std::uint32_t vrf = vrfs[random() % vrfs.size()];
        if (random() % 2 == 0) {
            expected[vrf] = Lumo::IntfId::fromValue(1 + random() % 3);
            writer.vrfIntfIdIs({vrf}, expected[vrf]);
        } else {
            expected.erase(vrf);
            writer.vrfIntfIdDel({vrf});
        }
        for (const std::uint32_t one : vrfs) {
            const auto found = expected.find(one);
            ASSERT_EQ(status.vrfIntfId({one}), found != expected.end()
                                                   ? (MvpnVrfIntfId{{one}, found->second})
                                                   : MvpnVrfIntfId());
        }
        std::map<std::uint32_t, Lumo::IntfId> visited;
        status.forEachEntry([&](const MvpnVrfIntfId& entry) {
            EXPECT_TRUE(visited.emplace(entry.vrfId.value, entry.intfId).second);
        });
        ASSERT_EQ(visited, expected);
    }
}

TEST(MvpnIntfStatus, VrfsBehindOneWhoseEntryWasDamagedAreStillFound) {
    constexpr std::uint32_t places = 1U << 20U;
    const std::string name = "test-mvpn-" + std::to_string(getpid());
    const auto start = [&] {
        return std::make_unique<Mpls::TablePublisher>(Tessel::TableMemory::sharedForWriting(name));
    };
    auto publisher = start();
    const std::vector<std::uint32_t> vrfs{7, places | 6, 2 * places | 5, 9}; // one after the other
    for (const std::uint32_t vrf : vrfs) {
        publisher->mvpn().vrfIntfIdIs({vrf}, vlan100);
    }
    publisher->commit();
    const auto tables =
        Tessel::make<Tessel::TableReader>(Tessel::TableMemory::sharedForReading(name));
    const MvpnIntfStatus status(tables);
    const auto table = static_cast<std::size_t>(Mpls::TableId::mvpnIntfStatus);
    auto* words = reinterpret_cast<std::uint64_t*>(publisher->tables().memory().data());
    words[tables->entry(table, 8).unit() + 1] ^= 1U;
    EXPECT_THROW(status.vrfIntfId({vrfs[2]}), Tessel::CorruptionDetected);
    publisher = nullptr;
    publisher = start();
    tables->refresh();
    EXPECT_EQ(status.vrfs(), 3U);
    for (const std::uint32_t vrf : {vrfs[0], vrfs[2], vrfs[3]}) {
        EXPECT_EQ(status.vrfIntfId({vrf}), (MvpnVrfIntfId{{vrf}, vlan100})) << vrf;
    }
    EXPECT_EQ(status.vrfIntfId({vrfs[1]}), MvpnVrfIntfId());
    Tessel::TableMemory::remove(name);
}

TEST(MvpnIntfStatus, TellsOfChangesAlone) {
    LocalMvpn writer;
    const MvpnIntfStatus& status = *writer;
    Listener listener;
    status.subscribe(listener);
    writer.vrfIntfIdIs({7}, vlan100);
    writer.vrfIntfIdIs({7}, vlan100);
    writer.vrfIntfIdIs({7}, Lumo::IntfId("east"));
    writer.vrfIntfIdDel({8});
    writer.vrfIntfIdDel({7});
    status.unsubscribe(listener);
    EXPECT_EQ(listener.heard, (std::vector<std::uint64_t>{7, 7, 7}));
}

TEST(MvpnIntfStatus, AnEntryOfAnotherVrfIsCorruption) {
    LocalMvpn writer;
    const MvpnIntfStatus& status = *writer;
    writer.entryIs({7}, {{8}, vlan100});
    EXPECT_THROW(status.vrfIntfId({7}), Tessel::CorruptionDetected);
    EXPECT_EQ(status.corruptionsDetected(), 0U);
    status.doCorruptionDetected("torn");
    EXPECT_EQ(status.corruptionsDetected(), 1U);
    EXPECT_EQ(status.lastCorruption(), "torn");
}

} // namespace

} // namespace MvpnIntfStatusTest
