#include "State/LinkHeader.h"

#include <gtest/gtest.h>

#include "FrameBytes.h"

namespace LinkHeaderTest {

using namespace OvixAgent;
using namespace TestSupport::Raw;

namespace {

constexpr Lumo::EthAddr from{2, 0, 0, 0, 0, 1};
constexpr Lumo::EthAddr to{2, 0, 0, 0, 0, 2};

Ptr<Ovix::PacketContext> contextOf(const Bytes& bytes, Ovix::PktHdrType type) {
    return Tessel::make<Ovix::PacketContext>(Lumo::globalPktManager()->newPkt(bytes), type);
}

ReceivedLink read(const Bytes& frame) {
    return readLink(contextOf(frame, Ovix::PktHdrType::eth)->parsedPkt());
}

VlanTags tagsOf(const std::vector<std::uint16_t>& tcis) {
    VlanTags tags;
    for (const std::uint16_t tci : tcis) {
        tags.tags[tags.count++] = {Lumo::NetU16(ethVlan), Lumo::NetU16(tci)};
    }
    return tags;
}

std::vector<std::uint16_t> tcisOf(const VlanTags& tags) {
    std::vector<std::uint16_t> tcis;
    for (std::size_t i = 0; i < tags.count; ++i) {
        tcis.push_back(tags.tags[i].tci.value());
    }
    return tcis;
}

} // namespace

TEST(LinkHeader, TheRoutedHeaderFollowsTheTagsIfThereAreAny) {
    const Bytes labels = stack({{100}});
    const struct {
        Bytes frame;
        std::uint32_t offset;
        std::vector<std::uint16_t> tcis;
    } cases[]{
        {join({eth(ethMpls), labels}), 14, {}},
        {join({eth(ethVlan), tag(5, ethMpls), labels}), 18, {5}},
        {join({eth(ethServiceVlan), tag(0xe006, ethVlan), tag(5, ethMpls), labels}),
         22,
         {0xe006, 5}},
        {join({eth(ethServiceVlan), tag(7, ethServiceVlan), tag(6, ethVlan), tag(5, ethMpls),
               labels}),
         26,
         {7, 6, 5}},
    };
    for (const auto& given : cases) {
        const ReceivedLink link = read(given.frame);
        ASSERT_TRUE(link.routed);
        EXPECT_EQ(link.routed->pktHdrType(), Ovix::PktHdrType::mpls);
        EXPECT_EQ(link.routed->offset(), given.offset);
        EXPECT_EQ(tcisOf(link.tags), given.tcis);
    }
}

TEST(LinkHeader, NothingRoutedFollowsWhatIsNoProtocolOfOurs) {
    EXPECT_FALSE(read(join({eth(0x0806), filled(28, 0)})).routed);
    EXPECT_FALSE(read(join({eth(ethVlan), tag(5, 0x0806), filled(28, 0)})).routed);
    EXPECT_FALSE(read(join({eth(ethVlan), {0, 5, 0x88}})).routed);
}

TEST(LinkHeader, TheTagsToSendFollowTheNextHopThenThePort) {
    const VlanTags received = tagsOf({0xe005, 6});
    const struct {
        Tagging tagging;
        std::uint16_t nexthopVlan;
        std::vector<std::uint16_t> tcis;
    } cases[]{
        {{Tagging::Kind::keep, 0}, 0, {0xe005, 6}}, {{Tagging::Kind::none, 0}, 0, {}},
        {{Tagging::Kind::vlan, 9}, 0, {9}},         {{Tagging::Kind::keep, 0}, 8, {8}},
        {{Tagging::Kind::none, 0}, 8, {8}},         {{Tagging::Kind::vlan, 9}, 8, {8}},
    };
    for (const auto& given : cases) {
        EXPECT_EQ(tcisOf(tagsToSend(received, given.tagging, given.nexthopVlan)), given.tcis);
    }
    EXPECT_EQ(tcisOf(tagsToSend({}, {Tagging::Kind::keep, 0}, 0)), std::vector<std::uint16_t>{});
}

TEST(LinkHeader, IsWrittenWithTagsAndTheEtherTypeOfWhatFollows) {
    const std::pair<Ovix::PktHdrType, std::uint16_t> types[]{{Ovix::PktHdrType::mpls, ethMpls},
                                                             {Ovix::PktHdrType::ipv4, ethIpv4},
                                                             {Ovix::PktHdrType::ipv6, ethIpv6}};
    for (const auto& type : types) {
        const auto packet = contextOf({1, 2, 3}, type.first);
        ASSERT_TRUE(pushLink(*packet, from, to, tagsOf({0xe005, 6})));
        const auto data = packet->pkt()->data();
        EXPECT_EQ(Bytes(data.begin(), data.end()), join({{2, 0, 0, 0, 0, 2, 2, 0, 0, 0, 0, 1},
                                                         u16(ethVlan),
                                                         tag(0xe005, ethVlan),
                                                         tag(6, type.second),
                                                         {1, 2, 3}}));
        EXPECT_EQ(packet->outerType(), Ovix::PktHdrType::eth);
    }
}

TEST(LinkHeader, APacketThatBeginsWithOneIsLeftAsItIs) {
    const Bytes frame = join({eth(ethIpv4), {1, 2, 3}});
    const auto packet = contextOf(frame, Ovix::PktHdrType::eth);
    ASSERT_TRUE(pushLink(*packet, from, to, tagsOf({5})));
    const auto data = packet->pkt()->data();
    EXPECT_EQ(Bytes(data.begin(), data.end()), frame);
}

TEST(LinkHeader, IsRefusedByAPacketWithoutRoomForIt) {
    const auto packet = contextOf(filled(Lumo::Pkt::maxBytes - 13, 0), Ovix::PktHdrType::mpls);
    EXPECT_FALSE(pushLink(*packet, from, to, {}));
    EXPECT_EQ(packet->pkt()->bytes(), Lumo::Pkt::maxBytes - 13);
    packet->pkt()->popFront(1);
    EXPECT_TRUE(pushLink(*packet, from, to, {}));
}

TEST(LinkHeader, OfAnEthernetPacketIsItsHeaderAndItsTags) {
    const struct {
        Bytes packet;
        Ovix::PktHdrType first;
        std::size_t size;
    } cases[]{
        {join({eth(ethIpv4), ipv4({}, udp())}), Ovix::PktHdrType::eth, 14},
        {join({eth(0x88b5), filled(46, 0)}), Ovix::PktHdrType::eth, 14},
        {join({eth(ethVlan), tag(5, 0x88b5), filled(46, 0)}), Ovix::PktHdrType::eth, 18},
        {join({eth(ethServiceVlan), tag(5, ethVlan), tag(6, ethIpv4), ipv4({}, udp())}),
         Ovix::PktHdrType::eth, 22},
        {join({eth(ethVlan), {0, 5, 0x88}}), Ovix::PktHdrType::eth, 14},
        {filled(13, 0), Ovix::PktHdrType::eth, 0},
        {join({stack({{100}}), eth(ethIpv4)}), Ovix::PktHdrType::mpls, 0},
        {ipv4({}, udp()), Ovix::PktHdrType::ipv4, 0},
    };
    for (const auto& given : cases) {
        EXPECT_EQ(linkHeaderSize(*contextOf(given.packet, given.first)), given.size);
    }
}

TEST(LinkHeader, ASubInterfaceSendsWithItsOwnTagsWhateverTheNextHopSays) {
    const Tagging one{Tagging::Kind::subInterface, 7, 0};
    const Tagging two{Tagging::Kind::subInterface, 7, 8};
    EXPECT_EQ(tcisOf(tagsToSend(tagsOf({5}), one, 0)), (std::vector<std::uint16_t>{7}));
    EXPECT_EQ(tcisOf(tagsToSend({}, one, 9)), (std::vector<std::uint16_t>{7}));
    const VlanTags sent = tagsToSend(tagsOf({5}), two, 9);
    EXPECT_EQ(tcisOf(sent), (std::vector<std::uint16_t>{7, 8}));
    EXPECT_EQ(sent.tags[0].tpid.value(), ethServiceVlan); // IEEE 802.1ad
    EXPECT_EQ(sent.tags[1].tpid.value(), ethVlan);
}

TEST(LinkHeader, TagsAreInsertedBehindTheMacAddresses) {
    for (const std::vector<std::uint16_t>& tcis :
         {std::vector<std::uint16_t>{}, {7}, {7, 8}, {7, 8, 9}}) {
        const auto frame = Lumo::globalPktManager()->newPkt(join({eth(ethIpv4), filled(40, 0xa5)}));
        ASSERT_TRUE(insertTags(*frame, tagsOf(tcis)));
        Bytes expected = eth(ethIpv4);
        expected.resize(12);
        for (const std::uint16_t tci : tcis) {
            expected = join({expected, u16(ethVlan), u16(tci)});
        }
        expected = join({expected, u16(ethIpv4), filled(40, 0xa5)});
        EXPECT_EQ(Bytes(frame->data().begin(), frame->data().end()), expected);
    }
}

} // namespace LinkHeaderTest
