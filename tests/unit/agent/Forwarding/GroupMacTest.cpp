#include "ForwarderTesting.h"
#include "Forwarding/EgressLookup.h"

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

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

TEST(GroupMac, ALabelledPacketGoesByItsTopLabel) {
    const auto mpls = Ovix::PktHdrType::mpls;
    EXPECT_EQ(macOf(stack({{0x12345}, {7}}), mpls), (Mac{{0x01, 0x00, 0x5e, 0x81, 0x23, 0x45}}));
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
