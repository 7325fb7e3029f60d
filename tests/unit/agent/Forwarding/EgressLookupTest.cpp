// Where a next hop leads: the port, the neighbour, and whether the packet may go there.

#include "Forwarding/EgressLookup.h"

#include "ForwarderTesting.h"

namespace EgressLookupTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

using EgressLookupTest = ForwarderFixture;

/// The label stack of one label makes an IP packet this much longer.
constexpr std::size_t stackSize = 4;

/// A labelled frame with this many bytes behind the Ethernet header.
Bytes frameOfPacketSize(std::size_t size) {
    Ipv4 fields;
    fields.fragment = 0x4000; // not to be fragmented
    const std::size_t least = join({stack({{100}}), ipv4(fields, udp())}).size();
    return join(
        {eth(ethMpls), stack({{100}}), ipv4(fields, join({udp(), filled(size - least, 0)}))});
}

using Mac = std::optional<Lumo::EthAddr>;

Mac macOf(const Bytes& packet, Ovix::PktHdrType outer) {
    Ovix::PacketContext context(Lumo::globalPktManager()->newPkt(packet), outer);
    return groupMac(context);
}

Bytes packetTo(std::uint32_t destination) {
    Ipv4 fields;
    fields.destination = destination;
    return ipv4(fields, udp());
}

Bytes packetTo6(std::uint8_t first) {
    Bytes packet = ipv6({}, udp());
    packet[24] = first;
    packet[36] = 0xfe;
    return packet;
}

} // namespace

TEST_F(EgressLookupTest, IsFoundByInterfaceAndAddressOrDrops) {
    const struct {
        const char* what;
        Ptr<Ovix::RoutingNexthop> to;
        std::optional<PortNumber> port;
        const char* reason;
    } cases[]{
        {"interface and address", nexthop("east", "10.0.2.2"), east, ""},
        {"an IPv6 next hop", nexthop("east", "2001:db8::2"), east, ""},
        {"an address alone", nexthop("", "10.0.2.2"), east, ""},
        {"back where it came in", nexthop("west", "10.0.1.2"), west, ""},
        {"an interface alone, under labels", nexthop("east", ""), east, ""},
        {"an interface alone, over IP", withRewrite(nexthop("east", ""), popInfo()), east, ""},
        {"no such port", nexthop("south", "10.0.2.2"), {}, "No port for the egress interface"},
        {"nobody there", nexthop("east", "10.0.2.9"), {}, "No neighbour for the next hop"},
        {"a neighbour of another port",
         nexthop("east", "10.0.1.2"),
         {},
         "No neighbour for the next hop"},
        {"nobody anywhere", nexthop("", "10.0.2.9"), {}, "No neighbour for the next hop"},
        {"a port that is down", nexthop("dark", "10.0.3.2"), {}, "Egress port is down"},
    };
    for (const auto& given : cases) {
        const std::uint64_t before = summary().dropped.total();
        for (MemoryPort& port : out) {
            port.frames.clear();
        }
        receive(labelled(), always(given.to));
        for (std::uint32_t i = 0; i < out.size(); ++i) {
            EXPECT_EQ(out[i].frames.size(), given.port == i ? 1U : 0U) << given.what;
        }
        EXPECT_EQ(summary().dropped.total() - before, given.port ? 0U : 1U) << given.what;
        EXPECT_TRUE(given.port || dropped().contains(given.reason)) << given.what;
    }
}

TEST_F(EgressLookupTest, AnOwnAddressIsPuntedAsReceived) {
    receive(labelled(), always(withRewrite(nexthop("", "10.0.1.1"), popInfo())));
    EXPECT_EQ(cpu.frames, Frames{labelled()});
    EXPECT_EQ(summary().punted.counts(), (ReasonCounts{{"Address of the device", 1}}));
}

TEST_F(EgressLookupTest, OnlyTheDefaultVrfIsKnown) {
    auto to = nexthop("east", "10.0.2.2");
    to->vrfNameIs(L3::VrfName(L3::defaultVrf));
    receive(labelled(), always(to));
    to->vrfNameIs(L3::VrfName(std::string_view("red")));
    receive(labelled());
    EXPECT_EQ(summary().forwardedTotal().frames, 1U);
    EXPECT_EQ(dropped(), (ReasonCounts{{"VRF not configured", 1}}));
}

TEST_F(EgressLookupTest, TheMtuIsMeasuredOnTheRewrittenPacketWithoutItsLinkHeader) {
    receive(frameOfPacketSize(100), always(nexthop("east", "10.0.2.2")));
    receive(frameOfPacketSize(101));
    receive(frameOfPacketSize(100 + stackSize),
            always(withRewrite(nexthop("east", "10.0.2.2"), popInfo())));
    receive(frameOfPacketSize(101 + stackSize));
    EXPECT_EQ(out[east].frames.size(), 2U);
    EXPECT_EQ(dropped(), (ReasonCounts{{"MTU exceeded", 2}}));
}

TEST_F(EgressLookupTest, TheSmallerMtuOfNextHopAndPortApplies) {
    auto to = nexthop("east", "10.0.2.2");
    to->mtuIs(60);
    receive(frameOfPacketSize(60), always(to));
    receive(frameOfPacketSize(61));
    to->mtuIs(5000);
    receive(frameOfPacketSize(100));
    receive(frameOfPacketSize(101));
    EXPECT_EQ(out[east].frames.size(), 2U);
    EXPECT_EQ(dropped(), (ReasonCounts{{"MTU exceeded", 2}}));
}

TEST_F(EgressLookupTest, BytesLeftOutByTheCaptureCountTowardTheMtu) {
    receive(frameOfPacketSize(90), always(nexthop("east", "10.0.2.2")), 10);
    receive(frameOfPacketSize(90), always(nexthop("east", "10.0.2.2")), 11);
    ASSERT_EQ(out[east].frames.size(), 1U);
    EXPECT_EQ(out[east].frames[0].size(), 14U + 90);
    EXPECT_EQ(out[east].originalLengths[0], 14U + 100);
    EXPECT_EQ(dropped(), (ReasonCounts{{"MTU exceeded", 1}}));
}

TEST_F(EgressLookupTest, TagsFollowTheNextHopThenThePort) {
    const Bytes tagged = join({eth(ethVlan), tag(0x6005, ethMpls), stack({{100}}), packet()});
    auto to = nexthop("east", "10.0.2.2");
    receive(tagged, always(to));
    to->vlanIdIs(7);
    receive(tagged);
    receive(tagged, always(nexthop("plain", "10.0.4.2")));
    const Bytes packetOut = join({stack({{100}}), packet()});
    EXPECT_EQ(out[east].frames,
              (Frames{join({eastHeader(ethVlan), tag(0x6005, ethMpls), packetOut}),
                      join({eastHeader(ethVlan), tag(7, ethMpls), packetOut})}));
    EXPECT_EQ(out[plain].frames,
              Frames{join({{2, 0, 0, 0, 4, 2, 2, 0, 0, 0, 0, 4}, u16(ethMpls), packetOut})});
}

TEST(GroupMac, ALabelledPacketGoesByItsSecondLabelOrItsOnlyOne) {
    const auto mpls = Ovix::PktHdrType::mpls;
    EXPECT_EQ(macOf(stack({{0x12345}, {0x54321}, {7}}), mpls),
              (Mac{{0x01, 0x00, 0x5e, 0x85, 0x43, 0x21}}));
    EXPECT_EQ(macOf(stack({{0x12345}}), mpls), (Mac{{0x01, 0x00, 0x5e, 0x81, 0x23, 0x45}}));
    EXPECT_EQ(macOf(stack({{0xfffff}}), mpls), (Mac{{0x01, 0x00, 0x5e, 0x8f, 0xff, 0xff}}));
    EXPECT_EQ(macOf(stack({{16}}), mpls), (Mac{{0x01, 0x00, 0x5e, 0x80, 0x00, 0x10}}));
    EXPECT_EQ(macOf({1, 2, 3}, mpls), Mac());
}

TEST(GroupMac, AnIpPacketGoesByItsGroup) {
    EXPECT_EQ(macOf(packetTo(0xe8ff0203), Ovix::PktHdrType::ipv4),
              (Mac{{0x01, 0x00, 0x5e, 0x7f, 0x02, 0x03}}));
    EXPECT_EQ(macOf(packetTo(0xefffffff), Ovix::PktHdrType::ipv4),
              (Mac{{0x01, 0x00, 0x5e, 0x7f, 0xff, 0xff}}));
    EXPECT_EQ(macOf(packetTo6(0xff), Ovix::PktHdrType::ipv6), (Mac{{0x33, 0x33, 0xfe, 0, 0, 2}}));
}

TEST(GroupMac, NothingElseGoesToAGroup) {
    EXPECT_EQ(macOf(packetTo(0xdfffffff), Ovix::PktHdrType::ipv4), Mac());
    EXPECT_EQ(macOf(packetTo(0xf0000000), Ovix::PktHdrType::ipv4), Mac());
    EXPECT_EQ(macOf(packetTo6(0xfe), Ovix::PktHdrType::ipv6), Mac());
    EXPECT_EQ(macOf(join({eth(ethIpv4), packetTo(0xe8010101)}), Ovix::PktHdrType::eth), Mac());
    EXPECT_EQ(macOf({}, Ovix::PktHdrType::ipv4), Mac());
}

namespace {

const Bytes zeroWord = filled(4, 0);
const Bytes inner = join({eth(ethIpv4), ipv4({}, udp())});
const Bytes headerOnly = eth(ethIpv4);

struct Row {
    const char* what;
    Bytes payload;
    const char* verdict; ///< "forwarded", or a reason
    Bytes left;
};

void check(const std::vector<Row>& rows, bool controlWord) {
    for (const Row& row : rows) {
        Ovix::PacketContext packet(Lumo::globalPktManager()->newPkt(row.payload),
                                   Ovix::PktHdrType::eth);
        Pseudowire pseudowire;
        pseudowire.controlWord = controlWord;
        const Fate fate = removeControlWord(packet, &pseudowire);
        EXPECT_EQ(fate.kind == FateKind::forwarded ? "forwarded" : fate.reason, row.verdict)
            << row.what;
        EXPECT_EQ(fate.kind == FateKind::punted, fate.reason == Reason::associatedChannel);
        if (fate.kind == FateKind::forwarded) {
            const auto data = packet.pkt()->data();
            EXPECT_EQ(Bytes(data.begin(), data.end()), row.left) << row.what;
            EXPECT_EQ(packet.parsedPkt().header(0)->payload().size(), row.left.size() - 14);
        }
    }
}

constexpr const char* cutShort = "Pseudowire payload shorter than an Ethernet header";
constexpr const char* channel = "Pseudowire associated channel";
constexpr const char* noWord =
    "Pseudowire control word missing: the first nibble is neither 0 nor 1";

/// A frame to an address that begins with four zero bytes.
Bytes toZeros(std::uint16_t etherType, const Bytes& payload) {
    return join({{0, 0, 0, 0, 0, 1, 2, 0, 0, 0, 1, 2}, u16(etherType), payload});
}

} // namespace

TEST(PseudowirePayload, WithAControlWordTheFirstNibbleDecides) {
    check(
        {
            {"data", join({zeroWord, inner}), "forwarded", inner},
            {"numbered", join({{0, 0, 0xff, 0xff}, inner}), "forwarded", inner},
            {"reserved bits", join({{0x0f, 0xff, 0, 0}, inner}), "forwarded", inner},
            {"a header alone", join({zeroWord, headerOnly}), "forwarded", headerOnly},
            {"nothing", {}, cutShort, {}},
            {"less than a control word", {0, 0, 0}, cutShort, {}},
            {"a control word alone", zeroWord, cutShort, {}},
            {"one byte short", join({zeroWord, filled(13, 1)}), cutShort, {}},
            {"a channel header alone", {0x10, 0, 0, 7}, channel, {}},
            {"a channel message", join({{0x10, 0, 0, 0x21}, ipv4({}, udp())}), channel, {}},
            {"an IPv4 packet", ipv4({}, udp()), noWord, {}},
            {"an IPv6 packet", ipv6({}, udp()), noWord, {}},
            {"nibble 2", join({{0x20, 0, 0, 0}, inner}), noWord, {}},
            {"nibble 15", join({{0xff, 0, 0, 0}, inner}), noWord, {}},
        },
        true);
}

TEST(PseudowirePayload, WithoutOneTheFrameIsThePayload) {
    const Bytes shortLlc = toZeros(3, join({{0x42, 0x42, 3}, filled(43, 0)}));
    check(
        {
            {"a frame", inner, "forwarded", inner},
            {"a header alone", headerOnly, "forwarded", headerOnly},
            {"nothing", {}, cutShort, {}},
            {"one byte short", filled(13, 1), cutShort, {}},
            {"an address that looks like a channel", join({{0x10}, filled(5, 0), filled(54, 1)}),
             "forwarded", join({{0x10}, filled(5, 0), filled(54, 1)})},
            {"IPv4 to zeros", toZeros(ethIpv4, ipv4({}, udp())), "forwarded",
             toZeros(ethIpv4, ipv4({}, udp()))},
            {"a tagged frame to zeros", toZeros(ethVlan, filled(46, 8)), "forwarded",
             toZeros(ethVlan, filled(46, 8))},
            {"an EtherType nobody knows", toZeros(0x1234, filled(46, 7)), "forwarded",
             toZeros(0x1234, filled(46, 7))},
            {"802.3 to zeros", toZeros(100, filled(100, 8)), "forwarded",
             toZeros(100, filled(100, 8))},
            {"padded 802.3 to zeros", shortLlc, "forwarded", shortLlc},
            {"all zeros", filled(60, 0), "forwarded", filled(60, 0)},
            {"a header of zeros", filled(14, 0), "forwarded", filled(14, 0)},
        },
        false);
}

TEST(PseudowirePayload, WithoutOneNothingIsTakenForIt) {
    const Bytes zeros = join({zeroWord, inner});
    const Bytes numbered = join({{0, 0, 0x12, 0x34}, inner});
    check({{"what looks like a control word", zeros, "forwarded", zeros},
           {"and a numbered one", numbered, "forwarded", numbered}},
          false);
}

TEST(PseudowirePayload, APortWithoutAPseudowireGetsTheFrame) {
    Ovix::PacketContext packet(Lumo::globalPktManager()->newPkt(inner), Ovix::PktHdrType::eth);
    EXPECT_EQ(removeControlWord(packet, nullptr).kind, FateKind::forwarded);
    EXPECT_EQ(packet.pkt()->bytes(), inner.size());
}

TEST(PseudowirePayload, TheFlowLabelIsTheLastOfTheStack) {
    const struct {
        Bytes packet;
        const char* verdict;
        std::size_t left;
    } rows[]{
        {join({stack({{77777}}), inner}), "forwarded", inner.size()},
        {stack({{77777}}), "forwarded", 0},
        {join({stack({{77777}, {5}}), inner}), "Label beneath the label of a pseudowire", 0},
        {{0, 1, 2}, "Pseudowire flow label missing", 0},
        {join({stack({{13}}), inner}), "Pseudowire associated channel", 0},
        {join({stack({{0}}), inner}), "Special-purpose label in place of a pseudowire's flow label",
         0},
        {join({stack({{15}}), inner}),
         "Special-purpose label in place of a pseudowire's flow label", 0},
    };
    for (const auto& row : rows) {
        Ovix::PacketContext packet(Lumo::globalPktManager()->newPkt(row.packet),
                                   Ovix::PktHdrType::mpls);
        const Fate fate = removeFlowLabel(packet);
        EXPECT_EQ(fate.kind == FateKind::forwarded ? "forwarded" : fate.reason, row.verdict);
        if (fate.kind == FateKind::forwarded) {
            EXPECT_EQ(packet.pkt()->bytes(), row.left);
            EXPECT_EQ(packet.outerType(), Ovix::PktHdrType::eth);
        }
    }
}

} // namespace EgressLookupTest
