#include "Mpls/LfibRecords.h"

#include <cstddef>
#include <type_traits>

#include "TableTesting.h"

namespace LfibRecordsTest {

namespace {

using namespace Mpls;
using Ovix::OvixMplsVia;

TEST(LfibRecords, ADefaultViaHoldsItsFifteenDefaultsInOrder) {
    const auto& [labelAction, trafficClass, controlWord, entropy, payloadType, ttlMode, labels,
                 pushTtl, intfId, nexthop, vrfName, fecIdHigh, fecIdLow, nexthopMtu, nexthopVlan] =
        OvixMplsVia();
    EXPECT_EQ(labelAction, 0U);
    EXPECT_EQ(trafficClass, 15U);
    EXPECT_EQ(controlWord, false);
    EXPECT_EQ(entropy, false);
    EXPECT_EQ(payloadType, 0U);
    EXPECT_EQ(ttlMode, 0U);
    EXPECT_EQ(labels.view(), "");
    EXPECT_EQ(pushTtl, 0U);
    EXPECT_EQ(intfId, Lumo::IntfId(""));
    EXPECT_EQ(nexthop.family(), Lumo::IpFamily{});
    EXPECT_EQ(nexthop, Lumo::IpGenAddr());
    EXPECT_EQ(vrfName.view(), "");
    EXPECT_EQ(fecIdHigh, 0U);
    EXPECT_EQ(fecIdLow, 0U);
    EXPECT_EQ(nexthopMtu, 0U);
    EXPECT_EQ(nexthopVlan, 0U);
}

TEST(LfibRecords, AViasFieldsHaveTheirWidths) {
    using Via = OvixMplsVia;
    static_assert(std::is_same_v<decltype(Via::labelAction), std::uint32_t>);
    static_assert(std::is_same_v<decltype(Via::trafficClass), std::uint32_t>);
    static_assert(sizeof(Via::controlWord) == 1 && sizeof(Via::entropy) == 1);
    static_assert(std::is_same_v<decltype(Via::payloadType), std::uint32_t>);
    static_assert(std::is_same_v<decltype(Via::ttlMode), std::uint32_t>);
    static_assert(std::is_same_v<decltype(Via::pushTtl), std::uint16_t>);
    static_assert(std::is_same_v<decltype(Via::fecIdHigh), std::uint32_t>);
    static_assert(std::is_same_v<decltype(Via::fecIdLow), std::uint32_t>);
    static_assert(std::is_same_v<decltype(Via::nexthopMtu), std::uint32_t>);
    static_assert(std::is_same_v<decltype(Via::nexthopVlan), std::uint16_t>);
    Via via;
    EXPECT_NO_THROW(via.labels = std::string_view(std::string(100, 'x')));
    EXPECT_NO_THROW(via.vrfName = std::string_view(std::string(100, 'x')));
    EXPECT_THROW(via.labels = std::string_view(std::string(101, 'x')), Tessel::RangeError);
    EXPECT_THROW(via.vrfName = std::string_view(std::string(101, 'x')), Tessel::RangeError);
}

TEST(LfibRecords, AViaKeyTellsItsTypeInItsSecondByte) {
    static_assert(sizeof(LfibViaKey) == 12 && sizeof(LfibWeightedVia) == 12);
    static_assert(sizeof(LfibViaSetKey) == 8 && sizeof(LfibViaType) == 1);
    EXPECT_EQ(offsetof(LfibViaKey, viaType), 1U);
    EXPECT_EQ(static_cast<int>(LfibViaType::multicastIpLookup), 12);
    EXPECT_EQ(static_cast<int>(LfibViaSetType::multicast), 1);
    EXPECT_EQ(LfibViaSet::capacity, 599U);
}

TEST(LfibRecords, ViaSetsAreComparedFieldByField) {
    const std::vector<std::pair<const char*, std::function<void(LfibViaSet&)>>> changes = {
        {"key", [](LfibViaSet& set) { set.key = {1}; }},
        {"upper half of the key", [](LfibViaSet& set) { set.key = {std::uint64_t{1} << 63U}; }},
        {"type", [](LfibViaSet& set) { set.type = LfibViaSetType::multicast; }},
        {"owner", [](LfibViaSet& set) { set.owner = 1; }},
        {"flags", [](LfibViaSet& set) { set.flags = 0x80; }},
        {"via keys", [](LfibViaSet& set) { set.viaKeys.push({}); }},
        {"members", [](LfibViaSet& set) { set.members.push({}); }},
    };
    const LfibViaSet none{LfibViaSetKey()};
    EXPECT_TRUE(none.isEq(LfibViaSet()));
    for (const auto& [what, change] : changes) {
        LfibViaSet one;
        change(one);
        EXPECT_FALSE(one.isEq(none)) << what;
        EXPECT_FALSE(none.isEq(one)) << what;
        EXPECT_TRUE(one.isEq(LfibViaSet(one))) << what;
    }
}

TEST(LfibRecords, ListsOfViaSetsAreComparedElementByElement) {
    for (const bool ofKeys : {true, false}) {
        LfibViaSet one;
        LfibViaSet other;
        for (std::uint32_t i = 0; i < 3; ++i) {
            one.viaKeys.push({0, LfibViaType::ip, 0, i, 0});
            one.members.push({i, i, 0});
            other.viaKeys.push({0, LfibViaType::ip, 0, i + (ofKeys && i == 2 ? 1 : 0), 0});
            other.members.push({i, i + (!ofKeys && i == 2 ? 1 : 0), 0});
        }
        EXPECT_FALSE(one.isEq(other));
    }
}

} // namespace

} // namespace LfibRecordsTest
