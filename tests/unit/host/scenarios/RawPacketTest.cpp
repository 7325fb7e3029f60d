// What is read from a packet's bytes is what its parse says, for whole, damaged and cut packets.

#include <gtest/gtest.h>
#include <random>

#include "Ovix/packet/FlowHash.h"
#include "PacketTesting.h"

namespace RawPacketTest {

using namespace Ovix;
using namespace TestSupport;
using namespace TestSupport::Raw;

namespace {

/// Makes packets near the limits of what the parser tells apart.
class PacketMaker {
  public:
    explicit PacketMaker(std::uint32_t seed) : random_(seed) {}

    std::uint32_t random() { return static_cast<std::uint32_t>(random_()); }
    std::uint32_t below(std::uint32_t limit) { return random() % limit; }
    bool once(std::uint32_t in) { return below(in) == 0; }

    struct Made {
        PktHdrType first;
        Bytes bytes;
    };
    Made packet() {
        static constexpr std::array<PktHdrType, 4> firsts{PktHdrType::eth, PktHdrType::mpls,
                                                          PktHdrType::ipv4, PktHdrType::ipv6};
        const PktHdrType first = firsts[below(4)];
        Made made{first, first == PktHdrType::eth    ? frame()
                         : first == PktHdrType::mpls ? labelled()
                                                     : payload()};
        if (once(3) && !made.bytes.empty()) {
            made.bytes[below(static_cast<std::uint32_t>(made.bytes.size()))] =
                static_cast<std::uint8_t>(random());
        }
        if (once(3)) {
            made.bytes.resize(below(static_cast<std::uint32_t>(made.bytes.size()) + 1));
        }
        return made;
    }

  private:
    Bytes labelled() {
        static constexpr std::array<std::uint32_t, 8> special{0, 2, 7, 7, 14, 15, 15, 3};
        std::vector<Entry> entries(1 + below(5));
        for (Entry& entry : entries) {
            entry = {once(2) ? special[below(8)] : 16 + below(1000),
                     static_cast<std::uint8_t>(below(8)), static_cast<std::uint8_t>(below(256))};
        }
        return join({stack(entries), once(4) ? frame() : payload()});
    }
    Bytes transport() {
        return once(4) ? Bytes(below(12), 9) : udp(static_cast<std::uint16_t>(random()), 9);
    }
    Bytes payload() {
        static constexpr std::array<std::uint8_t, 5> protocols{6, 17, 132, 1, 4};
        static constexpr std::array<std::uint16_t, 4> fragments{0, 0x4000, 0x2000, 0x0010};
        if (once(6)) {
            return Bytes(below(50), static_cast<std::uint8_t>(random()));
        }
        if (once(2)) {
            Ipv6 fields;
            fields.nextHeader = protocols[below(5)];
            Bytes made = ipv6(fields, transport());
            if (once(4)) { // an extension header in front
                made[6] = once(2) ? 0 : 44;
                const Bytes extension{protocols[below(5)], 0, 0, 1, 0, 0, 0, 7};
                made.insert(made.begin() + 40, extension.begin(), extension.end());
            }
            return made;
        }
        Ipv4 fields;
        fields.destination = random();
        fields.protocol = protocols[below(5)];
        fields.tos = static_cast<std::uint8_t>(random());
        fields.fragment = fragments[below(4)];
        fields.options = Bytes(4 * below(3), 1);
        return join({ipv4(fields, transport()), Bytes(once(3) ? 6 : 0, 0)});
    }
    Bytes frame() {
        static constexpr std::array<std::uint16_t, 6> types{ethIpv4,         ethIpv6, ethMpls,
                                                            ethMplsUpstream, ethMpls, 0x0806};
        static constexpr std::array<std::uint16_t, 3> tagTypes{ethVlan, ethServiceVlan,
                                                               ethLegacyVlan};
        const std::uint16_t type = types[below(6)];
        const Bytes beneath = type == ethMpls || type == ethMplsUpstream ? labelled() : payload();
        Bytes tags;
        std::uint16_t announced = type;
        for (std::uint32_t left = once(2) ? below(5) : 0; left > 0; --left) {
            tags = join({tag(static_cast<std::uint16_t>(random()), announced), tags});
            announced = tagTypes[below(3)];
        }
        return join({eth(announced), tags, beneath});
    }

    std::mt19937 random_;
};

/// The class by the parsed headers.
std::uint8_t parsedClass(ParsedPacket& parsed) {
    std::int32_t at = 0;
    Ptr<PacketHeader> header = parsed.header(at);
    if (header && header->pktHdrType() == PktHdrType::eth) {
        header = parsed.header(++at);
    }
    if (!header) {
        return 0;
    }
    const Wire::Bytes bytes = header->bytes();
    switch (header->pktHdrType()) {
    case PktHdrType::vlanTags:
        return static_cast<std::uint8_t>(bytes[0] >> 5U);
    case PktHdrType::mpls:
        return bytes.size() < 4 ? std::uint8_t{0} : static_cast<std::uint8_t>(bytes[2] >> 1U & 7U);
    case PktHdrType::ipv4:
        return static_cast<std::uint8_t>(bytes[1] >> 5U);
    case PktHdrType::ipv6:
        return static_cast<std::uint8_t>(bytes[0] >> 1U & 7U);
    default:
        return 0;
    }
}

constexpr int packets = 20000;

} // namespace

TEST(RawPacketTest, TheFlowHashOfBytesIsThatOfTheirParse) {
    PacketMaker maker(1);
    for (int i = 0; i < packets; ++i) {
        const auto made = maker.packet();
        const auto context = contextOf(made.bytes, made.first);
        ASSERT_EQ(flowHash(made.first, made.bytes), flowHash(context->parsedPkt()))
            << headerNames(context->parsedPkt()) << " " << testing::PrintToString(made.bytes);
    }
}

TEST(RawPacketTest, TheClassOfBytesIsThatOfTheirParse) {
    PacketMaker maker(2);
    std::array<int, 8> classes{};
    for (int i = 0; i < packets; ++i) {
        const auto made = maker.packet();
        const auto context = contextOf(made.bytes, made.first);
        const std::uint8_t found = classOf(made.first, made.bytes);
        ASSERT_EQ(found, parsedClass(context->parsedPkt()))
            << i << " " << headerNames(context->parsedPkt());
        ++classes.at(found);
    }
    for (const int seen : classes) {
        EXPECT_GT(seen, 100);
    }
}

} // namespace RawPacketTest
