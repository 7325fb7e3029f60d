#include "Answers/IcmpError.h"

#include "AnswersTesting.h"

namespace IcmpErrorTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using namespace TestSupport::Raw;

namespace {

Bytes answer(const Bytes& frame) {
    return icmpTimeExceeded(read(frame), own);
}

Bytes answerTo4(const Ipv4& fields, const Bytes& payload = udp()) {
    return answer(labelled({{100, 0, 1}}, ipv4(fields, payload)));
}
Bytes answerTo6(std::uint8_t nextHeader, const Bytes& payload) {
    Ipv6 fields;
    fields.nextHeader = nextHeader;
    return answer(labelled({{100, 0, 1}}, ipv6(fields, payload)));
}

/// A packet whose addresses are replaced, as text; its checksum is made right again.
Bytes answerBetween(const char* source, const char* destination) {
    const auto from = Lumo::IpGenAddr::fromText(source);
    const auto to = Lumo::IpGenAddr::fromText(destination);
    if (from.family() == Lumo::IpFamily::ipv4) {
        const auto number = [](const Lumo::IpGenAddr& address) {
            return Lumo::NetU32::load(address.bytes().data()).value();
        };
        Ipv4 fields;
        fields.source = number(from);
        fields.destination = number(to);
        return answerTo4(fields);
    }
    Bytes packet = ipv6({}, udp());
    std::copy(from.bytes().begin(), from.bytes().end(), packet.begin() + 8);
    std::copy(to.bytes().begin(), to.bytes().end(), packet.begin() + 24);
    return answer(labelled({{100, 0, 1}}, packet));
}

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

std::uint32_t mtuIn(const Bytes& answer) {
    return answer[0] >> 4U == 4 ? Lumo::NetU16::load(answer.data() + 26).value()
                                : Lumo::NetU32::load(answer.data() + 44).value();
}

} // namespace

TEST(IcmpTimeExceeded, QuotesThePacketAndReportsItsLabels) {
    const Bytes packet = ipv4({}, udp());
    const Bytes sent = answer(tagged({{100, 3, 1}, {200, 0, 7}}, packet));
    // 20 for IPv4, 8 for ICMP, 128 that quote, 4 for the extension, 4 for the object, two labels.
    ASSERT_EQ(sent.size(), 172U);
    EXPECT_EQ(hex(cut(sent, 20)), "45c000ac00004000ff01658f0aff00010a010001");
    const Bytes icmp = from(sent, 20, sent.size() - 20);
    EXPECT_EQ(hex(cut(icmp, 2)), "0b00");
    EXPECT_EQ(hex(from(icmp, 4, 4)), "00200000");
    EXPECT_EQ(hex(from(icmp, 8, 128)), hex(join({packet, filled(128 - packet.size(), 0)})));
    EXPECT_EQ(hex(from(icmp, 136, 2)), "2000");
    EXPECT_EQ(hex(from(icmp, 140, 12)), "000c010100064601000c8107");
    EXPECT_EQ(onesSum(cut(sent, 20)), 0xffff);
    EXPECT_EQ(onesSum(icmp), 0xffff);
    EXPECT_EQ(onesSum(from(icmp, 136, 16)), 0xffff);
}

TEST(IcmpTimeExceeded, CountsUnitsOfEightBytesInIpv6) {
    const Bytes packet = ipv6({}, udp(1024, 9, counting(85)));
    const Bytes sent = answer(labelled({{100, 3, 1}}, packet));
    ASSERT_EQ(sent.size(), 40U + 8 + 128 + 4 + 8);
    EXPECT_EQ(hex(cut(sent, 8)), "6c00000000943aff");
    EXPECT_EQ(hex(from(sent, 8, 32)), hex(join({ipv6Address(0xff), ipv6Address(1)})));
    EXPECT_EQ(hex(from(sent, 40, 2)), "0300");
    EXPECT_EQ(hex(from(sent, 44, 4)), "10000000");
    EXPECT_EQ(hex(from(sent, 48, 128)), hex(cut(packet, 128)));
    EXPECT_EQ(hex(from(sent, 180, 8)), "0008010100064701");
    EXPECT_EQ(transportSum(sent), 0xffff);
}

TEST(IcmpTimeExceeded, WithoutLabelsQuotesThePacketAlone) {
    const Bytes packet = ipv4({}, udp());
    const Bytes sent = answer(join({eth(ethIpv4), packet}));
    EXPECT_EQ(hex(from(sent, 24, 4)), "00000000");
    EXPECT_EQ(hex(from(sent, 28, sent.size() - 28)), hex(packet));
}

TEST(IcmpTimeExceeded, WithLabelsQuotesTheFirst128Bytes) {
    for (const std::size_t size : {127U, 128U, 129U, 1400U}) {
        const Bytes four = ipv4({}, udp(1, 2, counting(size - 28)));
        const Bytes six = ipv6({}, udp(1, 2, counting(size - 48)));
        const Bytes answer4 = answer(labelled({{100, 0, 1}}, four));
        const Bytes answer6 = answer(labelled({{100, 0, 1}}, six));
        const Bytes padding = filled(size < 128 ? 128 - size : 0, 0);
        const std::size_t quoted = std::min<std::size_t>(size, 128);
        EXPECT_EQ(hex(from(answer4, 28, 128)), hex(join({cut(four, quoted), padding})));
        EXPECT_EQ(hex(from(answer6, 48, 128)), hex(join({cut(six, quoted), padding})));
        EXPECT_EQ(answer4.size(), 28U + 128 + 12);
        EXPECT_EQ(answer6.size(), 48U + 128 + 12);
    }
}

TEST(IcmpTimeExceeded, WithoutLabelsFitsTheMinimumMtu) {
    const Bytes four = ipv4({}, udp(1, 2, counting(1400)));
    const Bytes six = ipv6({}, udp(1, 2, counting(1400)));
    EXPECT_EQ(answer(join({eth(ethIpv4), four})).size(), 576U);
    EXPECT_EQ(answer(join({eth(ethIpv6), six})).size(), 1280U);
}

TEST(IcmpTimeExceeded, LeavesOutAStackThatIsTooDeep) {
    const Bytes packet = ipv4({}, udp(1, 2, counting(1400)));
    const Bytes deepest = answer(labelled(std::vector<Entry>(103, Entry{100, 0, 1}), packet));
    EXPECT_EQ(deepest.size(), 28U + 128 + 8 + 412);
    EXPECT_EQ(deepest[25], 32);
    const Bytes deeper = answer(labelled(std::vector<Entry>(104, Entry{100, 0, 1}), packet));
    EXPECT_EQ(deeper.size(), 576U);
    EXPECT_EQ(deeper[25], 0);
    EXPECT_EQ(hex(from(deeper, 28, 548)), hex(cut(packet, 548)));
}

TEST(IcmpTimeExceeded, NeverAnswersIcmpErrors) {
    for (unsigned type = 0; type < 256; ++type) {
        const auto octet = static_cast<std::uint8_t>(type);
        Ipv4 icmp;
        icmp.protocol = 1;
        const bool isError4 = type == 3 || type == 4 || type == 5 || type == 11 || type == 12;
        EXPECT_EQ(answerTo4(icmp, join({{octet}, filled(7, 0)})).empty(), isError4) << type;
        const bool isError6 = type < 128 || type == 137;
        EXPECT_EQ(answerTo6(58, join({{octet}, filled(7, 0)})).empty(), isError6) << type;
        const Bytes options{58, 0, 1, 4, 0, 0, 0, 0};
        EXPECT_EQ(answerTo6(0, join({options, {octet}, filled(7, 0)})).empty(), isError6) << type;
    }
    Ipv4 cutShort;
    cutShort.protocol = 1;
    EXPECT_TRUE(answerTo4(cutShort, {}).empty());
    EXPECT_TRUE(answerTo6(58, {}).empty());
}

TEST(IcmpTimeExceeded, AnswersOnlyTheFirstFragment) {
    const struct {
        std::uint16_t fragment;
        bool isAnswered;
    } cases[]{{0, true}, {0x4000, true}, {0x2000, true}, {0x2001, false}, {1, false}};
    for (const auto& given : cases) {
        Ipv4 fields;
        fields.fragment = given.fragment;
        EXPECT_EQ(answerTo4(fields).empty(), !given.isAnswered) << given.fragment;
    }
    EXPECT_FALSE(answerTo6(44, join({{17, 0, 0, 1, 0, 0, 0, 1}, udp()})).empty());
    EXPECT_TRUE(answerTo6(44, join({{17, 0, 0, 9, 0, 0, 0, 1}, udp()})).empty());
    EXPECT_TRUE(answerTo6(44, {17, 0, 0, 0}).empty());
}

TEST(IcmpTimeExceeded, IsSentToSingleHostsAboutUnicast) {
    const struct {
        const char* source;
        const char* destination;
        bool isAnswered;
    } cases[]{
        {"10.1.0.1", "192.0.2.1", true},
        {"10.1.0.1", "224.0.0.5", false},
        {"10.1.0.1", "239.1.1.1", false},
        {"10.1.0.1", "255.255.255.255", false},
        {"0.0.0.0", "192.0.2.1", false},
        {"127.0.0.1", "192.0.2.1", false},
        {"224.0.0.5", "192.0.2.1", false},
        {"232.1.1.1", "192.0.2.1", false},
        {"255.255.255.255", "192.0.2.1", false},
        {"240.0.0.1", "192.0.2.1", false},
        {"2001:db8::1", "2001:db8::2", true},
        {"2001:db8::1", "ff02::1", false},
        {"2001:db8::1", "ff0e::1", false},
        {"::", "2001:db8::2", false},
        {"::1", "2001:db8::2", false},
        {"ff0e::1", "2001:db8::2", false},
        {"169.254.1.1", "192.0.2.1", false},
        {"10.1.0.1", "169.254.1.1", true},
        {"::ffff:10.1.0.1", "2001:db8::2", false},
        {"::fffe:a01:1", "2001:db8::2", true},
    };
    for (const auto& given : cases) {
        EXPECT_EQ(answerBetween(given.source, given.destination).empty(), !given.isAnswered)
            << given.source << " to " << given.destination;
    }
    Bytes broadcast = labelled({{100, 0, 1}}, ipv4({}, udp()));
    std::fill_n(broadcast.begin(), 6, std::uint8_t{0xff});
    EXPECT_TRUE(answer(broadcast).empty());
}

TEST(IcmpTimeExceeded, NeedsAnAddressOfThePacketsFamily) {
    const Bytes four = labelled({{100, 0, 1}}, ipv4({}, udp()));
    const Bytes six = labelled({{100, 0, 1}}, ipv6({}, udp()));
    OwnAddresses only4;
    only4.ipv4 = own.ipv4;
    EXPECT_FALSE(icmpTimeExceeded(read(four), only4).empty());
    EXPECT_TRUE(icmpTimeExceeded(read(six), only4).empty());
    EXPECT_TRUE(icmpTimeExceeded(read(four), {}).empty());
}

TEST(IcmpUnreachable, SaysWhyAndQuotesThePacketWithItsLabels) {
    const struct {
        Unreachable why;
        const char* in4;
        const char* in6;
    } cases[]{
        {Unreachable::noRoute, "0300", "0100"},
        {Unreachable::noNeighbour, "0301", "0103"},
        {Unreachable::byRoute, "0301", "0106"},
        {Unreachable::prohibited, "030d", "0101"},
    };
    const Bytes four = join({eth(ethIpv4), ipv4({}, udp())});
    const Bytes six = join({eth(ethIpv6), ipv6({}, udp())});
    for (const auto& given : cases) {
        const Bytes of4 = icmpUnreachable(read(four), given.why, own);
        EXPECT_EQ(hex(from(of4, 20, 2)), given.in4);
        EXPECT_EQ(hex(from(of4, 24, 4)), "00000000");
        EXPECT_EQ(hex(from(of4, 28, of4.size() - 28)), hex(ipv4({}, udp())));
        EXPECT_EQ(onesSum(from(of4, 20, of4.size() - 20)), 0xffff);
        const Bytes of6 = icmpUnreachable(read(six), given.why, own);
        EXPECT_EQ(hex(from(of6, 40, 2)), given.in6);
        EXPECT_EQ(transportSum(of6), 0xffff);
    }
    const Bytes labels = labelled({{100, 3, 64}}, ipv4({}, udp()));
    const Bytes extended = icmpUnreachable(read(labels), Unreachable::noRoute, own);
    EXPECT_EQ(hex(from(extended, 24, 4)), "00200000");
    EXPECT_EQ(hex(from(extended, 160, 8)), "0008010100064740");
}

TEST(IcmpTooBig, ReportsTheMtuLessTheLabelsAndQuotesThePacket) {
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

TEST(IcmpTooBig, UsesPacketTooBigForIpv6) {
    const Bytes frame = frame6(1500, 1);
    const Bytes sent = icmpTooBig(read(frame), 1500, own);
    ASSERT_EQ(sent.size(), 1280U);
    EXPECT_EQ(hex(cut(sent, 8)), "6c00000004d83aff");
    EXPECT_EQ(hex(from(sent, 40, 2)), "0200");
    EXPECT_EQ(hex(from(sent, 44, 4)), "000005d8"); // 1496
    EXPECT_EQ(hex(from(sent, 48, 1232)), hex(from(frame, 18, 1232)));
    EXPECT_EQ(transportSum(sent), 0xffff);
}

TEST(IcmpTooBig, ReportsAtLeastTheMinimumMtu) {
    const struct {
        std::uint32_t egress;
        std::uint32_t mtu4;
        std::uint32_t mtu6;
    } cases[]{{1400, 1392, 1392}, {1288, 1280, 1280}, {1287, 1279, 1280}, {77, 69, 1280},
              {76, 68, 1280},     {75, 68, 1280},     {8, 68, 1280},      {0, 68, 1280}};
    const Bytes four = frame4(1500);
    const Bytes six = frame6(1500);
    for (const auto& given : cases) {
        EXPECT_EQ(mtuIn(icmpTooBig(read(four), given.egress, own)), given.mtu4) << given.egress;
        EXPECT_EQ(mtuIn(icmpTooBig(read(six), given.egress, own)), given.mtu6) << given.egress;
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

TEST(IcmpTooBig, IsNotSentWhenThePacketMayBeFragmented) {
    for (const std::uint16_t flags : std::initializer_list<std::uint16_t>{0, 0x2000, 0x8000}) {
        const Bytes frame = frame4(1500, 1, flags);
        EXPECT_TRUE(icmpTooBig(read(frame), 1000, own).empty()) << flags;
    }
}

TEST(IcmpTooBig, FollowsTheRulesForErrorsExceptForIpv6Groups) {
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

} // namespace IcmpErrorTest
