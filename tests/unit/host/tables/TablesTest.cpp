#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "Mpls/Hardware/Status.h"
#include "Mpls/LabelStacks.h"
#include "Mpls/LfibWriter.h"
#include "Mpls/PackedVia.h"
#include "Tessel/Exceptions.h"

namespace {

using namespace Mpls;
using Ovix::OvixMplsVia;

RouteKey key(std::uint32_t label) {
    return RouteKey::fromLabel(Lumo::MplsLabel(label));
}

/// One change of each of the fifteen fields, in order.
const std::vector<std::function<void(OvixMplsVia&)>> changes = {
    [](auto& via) { via.labelAction = 3; },
    [](auto& via) { via.trafficClass = 7; },
    [](auto& via) { via.controlWord = true; },
    [](auto& via) { via.labelsInterned = true; },
    [](auto& via) { via.payloadType = 5; },
    [](auto& via) { via.ttlMode = 0xffffffff; },
    [](auto& via) { via.labels = std::string_view("\0\1\2", 3); },
    [](auto& via) { via.pushTtl = 0xffff; },
    [](auto& via) { via.intfId = Lumo::IntfId("eth1"); },
    [](auto& via) { via.nexthop = Lumo::IpGenAddr::fromText("2001:db8::1"); },
    [](auto& via) { via.vrfName = "red"; },
    [](auto& via) { via.fecIdHigh = 1; },
    [](auto& via) { via.fecIdLow = 0x80000000; },
    [](auto& via) { via.nexthopMtu = 1400; },
    [](auto& via) { via.nexthopVlan = 4094; },
};

TEST(Via, IsInvalidByDefaultAndValidWithAnyFieldChanged) {
    EXPECT_FALSE(OvixMplsVia());
    EXPECT_EQ(OvixMplsVia().trafficClass, 15U);
    ASSERT_EQ(changes.size(), 15U);
    for (std::size_t i = 0; i < changes.size(); ++i) {
        OvixMplsVia via;
        changes[i](via);
        EXPECT_TRUE(static_cast<bool>(via)) << "field " << i + 1;
    }
}

TEST(Via, GoesThroughItsPackedFormAndNoTruncationIsTakenForIt) {
    OvixMplsVia all;
    for (const auto& change : changes) {
        OvixMplsVia one;
        change(one);
        change(all);
        OvixMplsVia back;
        ASSERT_TRUE(PackedVia::unpack(PackedVia(one).bytes(), back));
        EXPECT_TRUE(back.isEq(one));
    }
    const PackedVia packed(all);
    for (std::size_t size = 0; size < packed.bytes().size(); ++size) {
        OvixMplsVia back;
        EXPECT_FALSE(PackedVia::unpack(packed.bytes().first(size), back)) << size;
    }
    OvixMplsVia back;
    ASSERT_TRUE(PackedVia::unpack(packed.bytes(), back));
    EXPECT_TRUE(back.isEq(all));
}

TEST(Via, CarriesLabelsOfAnyDepth) {
    for (const std::size_t depth : {1U, 33U, 34U, 300U}) {
        std::vector<std::uint8_t> packed;
        for (std::size_t i = 0; i < depth; ++i) {
            packed.insert(packed.end(),
                          {1, static_cast<std::uint8_t>(i >> 8U), static_cast<std::uint8_t>(i)});
        }
        OvixMplsVia via;
        ASSERT_TRUE(via.labelsIs(packed));
        EXPECT_EQ(via.labelOperation().depth(), depth);
        EXPECT_EQ(via.labelOperation().label(depth - 1).value(), 0x10000U + depth - 1);
        EXPECT_EQ(via.labelsInterned, depth > 33);
    }
    EXPECT_TRUE(LabelStacks::find(0).empty());
    EXPECT_TRUE(LabelStacks::find(99999).empty());
}

struct Heard : Tessel::Subscriber {
    void attributeChanged(const Tessel::Entity&, Tessel::AttrId attribute,
                          std::uint64_t changed) override {
        attributes.push_back(attribute);
        keys.push_back(changed);
    }
    std::vector<Tessel::AttrId> attributes;
    std::vector<std::uint64_t> keys;
};

class Lfib : public ::testing::Test {
  protected:
    void route(std::uint32_t label, std::uint32_t mtu, std::uint32_t vias = 1) {
        std::vector<WeightedVia> list(vias);
        for (WeightedVia& via : list) {
            via.via.labelAction = 3;
            via.via.nexthopMtu = mtu;
            via.via.intfId = Lumo::IntfId("eth1");
            via.via.nexthop = Lumo::IpGenAddr::fromText("10.0.0.1");
            via.via.labels = std::string_view("\0\1\2", 3);
        }
        writer.routeIs(key(label), LfibViaType::ip, LfibViaSetType::unicast, list);
    }
    LfibViaSet setOf(std::uint32_t label) const {
        return table().viaSet(table().route(key(label)).viaSetKey);
    }
    const LfibStatus& table() const { return *writer.status(); }
    LfibLayout::Header& header() {
        return *reinterpret_cast<LfibLayout::Header*>(writer.memory().data());
    }
    LfibWriter writer{"lfib", std::size_t{1} << 24U};
};

TEST_F(Lfib, AnAbsentRouteReadsAsTheDefaultOne) {
    EXPECT_EQ(table().route(key(100)), LfibRoute());
    EXPECT_EQ(table().route(RouteKey()), LfibRoute());
    EXPECT_TRUE(table().viaSet({}).isEq(LfibViaSet(LfibViaSetKey())));
}

TEST_F(Lfib, ARouteIsReadChangedAndDeletedAndItsRoomUsedAgain) {
    Heard heard;
    table().subscribe(heard);
    route(100, 1400);
    EXPECT_EQ(table().route(key(100)).routeKey, key(100));
    const LfibViaSet first = setOf(100);
    ASSERT_EQ(first.viaKeys.size(), 1U);
    EXPECT_EQ(first.viaKeys[0].viaType, LfibViaType::ip);
    EXPECT_EQ(table().ipVia(first.members[0].viaIndex).nexthopMtu, 1400U);
    route(100, 1300);
    EXPECT_EQ(table().ipVia(setOf(100).members[0].viaIndex).nexthopMtu, 1300U);
    EXPECT_TRUE(table().viaSet(first.key).isEq(LfibViaSet())); // the old key names nothing
    const std::uint32_t used = header().heapUnits;
    for (int i = 0; i < 100; ++i) {
        route(100, 1200);
    }
    EXPECT_EQ(header().heapUnits, used);
    writer.routeDel(key(100));
    writer.routeDel(key(100));
    EXPECT_EQ(table().route(key(100)), LfibRoute());
    EXPECT_EQ(heard.keys.size(), 103U);
    EXPECT_EQ(heard.keys.back(), key(100).value());
    EXPECT_EQ(table().routes(), 0U);
    table().unsubscribe(heard);
}

TEST_F(Lfib, HoldsTheLargestViaSetAndRefusesMore) {
    route(100, 1, 599);
    EXPECT_EQ(setOf(100).members.size(), 599U);
    EXPECT_THROW(route(101, 1, 600), std::invalid_argument);
    std::vector<WeightedVia> none(2);
    none[0].weight = none[1].weight = 0;
    EXPECT_THROW(writer.routeIs(key(101), LfibViaType::ip, LfibViaSetType::unicast, none),
                 std::invalid_argument);
    none[0].weight = none[1].weight = 0x80000000;
    EXPECT_THROW(writer.routeIs(key(101), LfibViaType::ip, LfibViaSetType::unicast, none),
                 std::invalid_argument);
    EXPECT_EQ(table().route(key(101)), LfibRoute());
}

TEST_F(Lfib, KeepsIpLookupAndMulticastVias) {
    writer.ipLookupRouteIs(key(100), LfibViaType::ipLookup, "red", PayloadType::ipv4);
    const LfibIpLookupVia lookup = table().ipLookupVia(setOf(100).viaKeys[0]);
    EXPECT_EQ(lookup.vrfName.view(), "red");
    EXPECT_EQ(lookup.payloadType, PayloadType::ipv4);
    LfibMulticastIpLookupVia via;
    via.vrfId = 7;
    writer.multicastIpLookupRouteIs(key(101), via);
    EXPECT_EQ(table().multicastIpLookupVia(setOf(101).viaKeys[0]), via);
    EXPECT_THROW(table().ipLookupVia(setOf(101).viaKeys[0]), Tessel::CorruptionDetected);
}

TEST_F(Lfib, EveryDamagedHeaderFieldIsRefused) {
    const auto refuses = [&](const char* named, auto& field) {
        const auto whole = field;
        std::memset(&field, 0x5a, sizeof field);
        try {
            const auto opened = Tessel::make<LfibStatus>("other", writer.memory());
            ADD_FAILURE() << named << " accepted";
        } catch (const Tessel::CorruptionDetected& refused) {
            EXPECT_NE(std::string(refused.what()).find(named), std::string::npos);
        }
        field = whole;
    };
    refuses("magic", header().magic);
    refuses("version", header().version);
    refuses("region size", header().regionBytes);
    refuses("type", header().typeName);
}

TEST_F(Lfib, EveryDamagedRecordFieldIsFoundAndReported) {
    route(100, 1400);
    const LfibViaSet whole = setOf(100);
    std::byte* heap = writer.memory().data() + LfibLayout::heapOffset;
    const auto damage = [&](std::byte* at, std::uint16_t value, const std::function<void()>& read) {
        std::uint16_t before = 0;
        std::memcpy(&before, at, sizeof before);
        std::memcpy(at, &value, sizeof value);
        read();
        std::memcpy(at, &before, sizeof before);
    };
    std::byte* set = heap + std::size_t{LfibLayout::unitOf(whole.key)} * LfibLayout::unit;
    const auto throws = [&] { EXPECT_THROW(setOf(100), Tessel::CorruptionDetected); };
    damage(set, 0x1111, throws);     // kind
    damage(set + 2, 1, throws);      // units: too few
    damage(set + 2, 0xffff, throws); // units: too many
    damage(set + 12, 500, throws);   // keys beyond it
    damage(set + 14, 500, throws);   // members beyond it
    damage(set + 12, 600, [&] { EXPECT_THROW(setOf(100), Tessel::RangeError); });
    damage(set + 14, 600, [&] { EXPECT_THROW(setOf(100), Tessel::RangeError); });
    EXPECT_TRUE(setOf(100).isEq(whole));

    const std::uint32_t viaAt = whole.members[0].viaIndex;
    std::byte* via = heap + std::size_t{viaAt} * LfibLayout::unit;
    std::uint64_t reported = 0;
    const auto reports = [&] {
        EXPECT_FALSE(static_cast<bool>(table().ipVia(viaAt)));
        EXPECT_EQ(table().corruptionsDetected(), ++reported);
    };
    damage(via, 0x1111, reports);
    damage(via + 2, 0xffff, reports);
    damage(via + 8, 0xffff, reports); // every field present: more than the record holds
    EXPECT_TRUE(static_cast<bool>(table().ipVia(viaAt)));
    EXPECT_FALSE(static_cast<bool>(table().ipVia(0xffffffff)));
    EXPECT_FALSE(static_cast<bool>(table().ipVia(0)));
    EXPECT_NE(table().lastCorruption().find("IP via at unit 0"), std::string::npos);
}

TEST_F(Lfib, AFullTableSaysSoAndKeepsWhatItHas) {
    LfibWriter small("small", 4096);
    WeightedVia via;
    via.via.labelAction = 3;
    std::uint32_t label = 0;
    EXPECT_THROW(
        for (; label < 10000; ++label) {
            small.routeIs(key(label), LfibViaType::ip, LfibViaSetType::unicast, {&via, 1});
        },
        std::length_error);
    EXPECT_GT(label, 10U);
    EXPECT_EQ(small.status()->routes(), label);
    EXPECT_EQ(small.status()->route(key(label)), LfibRoute());
}

TEST(Memory, PerRouteDoesNotDependOnTheCapacityOfTheLists) {
    constexpr std::uint32_t routes = 100000;
    LfibWriter writer("big");
    Hardware::Status status;
    status.reserve(routes);
    WeightedVia via;
    via.via.labelAction = 3;
    via.via.intfId = Lumo::IntfId("eth1");
    via.via.nexthop = Lumo::IpGenAddr::fromText("10.0.0.1");
    via.via.labels = std::string_view("\0\1\2", 3);
    for (std::uint32_t i = 0; i < routes; ++i) {
        writer.routeIs(key(16 + i), LfibViaType::ip, LfibViaSetType::unicast, {&via, 1});
        status.adjacencyIs(i + 1, Hardware::Adjacency::create({&via, 1}, {}, false));
        status.routeIs({key(16 + i), i + 1, false});
    }
    EXPECT_LE(writer.usedBytes() / routes, 128U);
    EXPECT_LE(status.usedBytes() / routes, 128U);
}

TEST(HardwareStatus, KeepsRoutesAndAdjacenciesApart) {
    Hardware::Status status;
    Heard heard;
    status.subscribe(heard);
    EXPECT_TRUE(status.route(key(100)).isEq(Hardware::Route()));
    EXPECT_FALSE(status.adjacency(1));
    status.routeIs({key(100), 1, true});
    status.routeIs({key(100), 1, true});
    EXPECT_TRUE(status.route(key(100)).unprogrammed);
    EXPECT_EQ(heard.keys.size(), 1U);
    WeightedVia via;
    via.weight = 5;
    changes[10](via.via);
    changes[8](via.via);
    status.adjacencyIs(1, Hardware::Adjacency::create({}, {&via, 1}, true));
    const auto adjacency = status.adjacency(1);
    ASSERT_TRUE(adjacency);
    EXPECT_EQ(adjacency->entries(false).size(), 0U);
    EXPECT_EQ(adjacency->entries(true).size(), 1U);
    EXPECT_EQ(adjacency->entries(true)[0].weight, 5U);
    EXPECT_TRUE(adjacency->via(true, 0).isEq(via.via));
    status.routeDel(key(100));
    EXPECT_TRUE(status.route(key(100)).isEq(Hardware::Route()));
    status.unsubscribe(heard);
}

} // namespace
