#include "Wire/Ethernet.h"

#include "WireTesting.h"

namespace EthernetTest {

namespace {

using namespace TestSupport;
using Bytes = std::vector<std::uint8_t>;

const Lumo::EthAddr east{2, 0, 0, 0, 0, 1};
const Lumo::EthAddr west{2, 0, 0, 0, 0, 2};
const Bytes golden{2, 0, 0, 0, 0, 1, 2, 0, 0, 0, 0, 2, 0x88, 0x47};

TEST(WireEthernet, ReadsItsFields) {
    const Wire::Ethernet header(golden);
    EXPECT_EQ(header.destination(), east);
    EXPECT_EQ(header.source(), west);
    EXPECT_EQ(header.etherType(), Wire::EtherType::mpls);
    EXPECT_FALSE(header.isToGroup());
    Bytes group = golden;
    group[0] = 1;
    EXPECT_TRUE(Wire::Ethernet(group).isToGroup());
    expectEmptyWhenShort<Wire::Ethernet>(golden);
}

TEST(WireEthernet, WritesItsFieldsAndNothingElse) {
    Bytes bytes = untouched(16);
    const Wire::EthernetWriter header(bytes);
    header.macsAre(east, west);
    header.etherTypeIs(Wire::EtherType::mpls);
    Bytes expected = golden;
    expected.insert(expected.end(), 2, 0xa5);
    EXPECT_EQ(bytes, expected);
}

TEST(WireTag, FieldsAndBytes) {
    const Wire::Tag tag{Lumo::NetU16(0x8100), Lumo::NetU16(0xf064)};
    EXPECT_EQ(tag.vlanId(), 100);
    EXPECT_EQ(tag.priority(), 7);
    Bytes bytes = untouched(5);
    tag.store(bytes.data());
    EXPECT_EQ(bytes, (Bytes{0x81, 0x00, 0xf0, 0x64, 0xa5}));
}

struct Walked {
    std::vector<std::uint16_t> tcis;
    std::uint16_t etherType;
    std::size_t rest;
    bool operator==(const Walked&) const = default;
};

Walked walk(std::uint16_t etherType, const Bytes& behind) {
    Wire::TagWalk tags(etherType, behind);
    Walked walked{};
    Wire::Tag tag;
    while (tags.next(tag)) {
        walked.tcis.push_back(tag.tci.value());
    }
    walked.etherType = tags.etherType();
    walked.rest = tags.rest().size();
    return walked;
}

TEST(WireTagWalk, EndsAtTheFirstTypeThatIsNoTag) {
    EXPECT_EQ(walk(0x0800, {0x45, 0}), (Walked{{}, 0x0800, 2}));
    EXPECT_EQ(walk(0x8100, {0, 5, 0x08, 0x00, 0x45}), (Walked{{5}, 0x0800, 1}));
    EXPECT_EQ(walk(0x88a8, {0, 5, 0x91, 0, 0, 6, 0x81, 0, 0, 7, 0x88, 0x47}),
              (Walked{{5, 6, 7}, 0x8847, 0}));
}

TEST(WireTagWalk, ATagCutShortIsNotPassed) {
    const Bytes two{0, 5, 0x81, 0, 0, 6, 0x08, 0};
    for (std::size_t size = 0; size <= two.size(); ++size) {
        const Bytes cut(two.begin(), two.begin() + static_cast<std::ptrdiff_t>(size));
        const Walked expected = size < 4   ? Walked{{}, 0x8100, size}
                                : size < 8 ? Walked{{5}, 0x8100, size - 4}
                                           : Walked{{5, 6}, 0x0800, 0};
        EXPECT_EQ(walk(0x8100, cut), expected) << size;
    }
}

} // namespace

} // namespace EthernetTest
