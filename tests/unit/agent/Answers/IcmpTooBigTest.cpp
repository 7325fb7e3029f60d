#include "Answers/IcmpTooBig.h"

#include "AnswersTesting.h"

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using namespace TestSupport::Raw;

namespace {

constexpr std::uint16_t dontFragment = 0x4000;

/// A packet of `size` bytes beneath some labels.
Bytes frame4(std::size_t size, std::size_t labels = 2, std::uint16_t flags = dontFragment) {
    Ipv4 fields;
    fields.fragment = flags;
    return labelled(std::vector<Entry>(labels, Entry{100}),
                    ipv4(fields, udp(1, 2, counting(size - 28))));
}
Bytes frame6(std::size_t size, std::size_t labels = 2) {
    return labelled(std::vector<Entry>(labels, Entry{100}),
                    ipv6({}, udp(1, 2, counting(size - 48))));
}

std::uint32_t mtuTold(const Bytes& answer) {
    return answer[0] >> 4U == 4 ? Lumo::NetU16::load(answer.data() + 26).value()
                                : Lumo::NetU32::load(answer.data() + 44).value();
}

} // namespace

TEST(IcmpTooBig, TellsTheMtuLessTheLabelsAndQuotesThePacket) {
    const Bytes frame = frame4(1500);
    const Bytes sent = icmpTooBig(read(frame), 1500, own);
    ASSERT_EQ(sent.size(), 576U);
    EXPECT_EQ(hex(cut(sent, 20)), "45c0024000004000ff0163fb0aff00010a010001");
    EXPECT_EQ(hex(from(sent, 20, 2)), "0304");
    EXPECT_EQ(hex(from(sent, 24, 4)), "000005d4"); // 1492, and no extension
    EXPECT_EQ(hex(from(sent, 28, 548)), hex(from(frame, 22, 548)));
    EXPECT_EQ(onesSum(cut(sent, 20)), 0xffff);
    EXPECT_EQ(onesSum(from(sent, 20, 556)), 0xffff);
}

TEST(IcmpTooBig, OfIpv6IsAMessageOfItsOwn) {
    const Bytes frame = frame6(1500, 1);
    const Bytes sent = icmpTooBig(read(frame), 1500, own);
    ASSERT_EQ(sent.size(), 1280U);
    EXPECT_EQ(hex(cut(sent, 8)), "6c00000004d83aff");
    EXPECT_EQ(hex(from(sent, 40, 2)), "0200");
    EXPECT_EQ(hex(from(sent, 44, 4)), "000005d8"); // 1496
    EXPECT_EQ(hex(from(sent, 48, 1232)), hex(from(frame, 18, 1232)));
    EXPECT_EQ(transportSum(sent), 0xffff);
}

TEST(IcmpTooBig, TellsNoLessThanEveryLinkCarries) {
    const struct {
        std::uint32_t egress;
        std::uint32_t told4;
        std::uint32_t told6;
    } cases[]{{1400, 1392, 1392}, {1288, 1280, 1280}, {1287, 1279, 1280}, {77, 69, 1280},
              {76, 68, 1280},     {75, 68, 1280},     {8, 68, 1280},      {0, 68, 1280}};
    const Bytes four = frame4(1500);
    const Bytes six = frame6(1500);
    for (const auto& given : cases) {
        EXPECT_EQ(mtuTold(icmpTooBig(read(four), given.egress, own)), given.told4) << given.egress;
        EXPECT_EQ(mtuTold(icmpTooBig(read(six), given.egress, own)), given.told6) << given.egress;
    }
}

TEST(IcmpTooBig, IsNotSentAboutAPacketThatFits) {
    for (const std::size_t size : {1492U, 1493U}) {
        const Bytes four = frame4(size);
        const Bytes six = frame6(size);
        EXPECT_EQ(icmpTooBig(read(four), 1500, own).empty(), size == 1492) << size;
        EXPECT_EQ(icmpTooBig(read(six), 1500, own).empty(), size == 1492) << size;
    }
    const Bytes small = frame6(1280);
    EXPECT_TRUE(icmpTooBig(read(small), 1000, own).empty());
}

TEST(IcmpTooBig, IsNotSentWhereFragmentsMayBe) {
    for (const std::uint16_t flags : std::initializer_list<std::uint16_t>{0, 0x2000, 0x8000}) {
        const Bytes frame = frame4(1500, 1, flags);
        EXPECT_TRUE(icmpTooBig(read(frame), 1000, own).empty()) << flags;
    }
}

TEST(IcmpTooBig, FollowsTheRulesOfErrorsExceptForIpv6Groups) {
    Ipv4 error;
    error.protocol = 1;
    error.fragment = dontFragment;
    const Bytes icmp = labelled({{100}}, ipv4(error, join({{3, 4}, filled(1400, 0)})));
    EXPECT_TRUE(icmpTooBig(read(icmp), 1000, own).empty());
    Ipv4 group;
    group.destination = 0xe8010101;
    group.fragment = dontFragment;
    const Bytes multicast4 = labelled({{100}}, ipv4(group, udp(1, 2, counting(1400))));
    EXPECT_TRUE(icmpTooBig(read(multicast4), 1000, own).empty());
    Bytes multicast6 = frame6(1500);
    multicast6[0] = 1;
    multicast6[14 + 8 + 24] = 0xff;
    multicast6[14 + 8 + 25] = 0x0e;
    EXPECT_FALSE(icmpTooBig(read(multicast6), 1400, own).empty());
}
