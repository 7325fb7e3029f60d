#include "Answers/LspEcho.h"

#include "EchoTesting.h"

namespace LspEchoTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using namespace TestSupport::Raw;

TEST(LspEcho, RepliesByUdp) {
    const Bytes reply = replyTo(tagged({{0, 0, 1}}, echo4(message({}))));
    ASSERT_EQ(reply.size(), 60U);
    EXPECT_EQ(hex(cut(reply, 20)), "4500003c00004000ff1166af0aff00010a010001");
    EXPECT_EQ(hex(from(reply, 20, 6)), "0dafc0000028");
    EXPECT_EQ(hex(from(reply, 28, 32)), "0001000002020301"   // a reply, egress for the FEC
                                        "deadbeef00000007"   // handle and sequence number
                                        "e000000180000000"   // sent
                                        "e3088e8080000000"); // received
    EXPECT_EQ(onesSum(cut(reply, 20)), 0xffff);
    EXPECT_EQ(transportSum(reply), 0xffff);
}

TEST(LspEcho, RepliesByIpv6) {
    const Bytes reply = replyTo(labelled({{2, 0, 1}}, echo6(message({.tlvs = fecStack({ldp6})}))));
    ASSERT_EQ(reply.size(), 80U);
    EXPECT_EQ(hex(cut(reply, 8)), "60000000002811ff");
    EXPECT_EQ(hex(from(reply, 8, 32)), hex(join({ipv6Address(0xff), ipv6Address(1)})));
    EXPECT_EQ(hex(from(reply, 48, 8)), "0001000002020301");
    EXPECT_EQ(transportSum(reply), 0xffff);
}

TEST(LspEcho, RepliesWithRouterAlertOnRequest) {
    const Bytes four = replyTo(labelled({{0}}, echo4(message({.replyMode = 3}))));
    ASSERT_EQ(four.size(), 64U);
    EXPECT_EQ(hex(cut(four, 4)), "46000040");
    EXPECT_EQ(hex(from(four, 20, 4)), "94040000");
    EXPECT_EQ(onesSum(cut(four, 24)), 0xffff);
    const Bytes six = replyTo(labelled({{0}}, echo6(message({.replyMode = 3}))));
    ASSERT_EQ(six.size(), 88U);
    EXPECT_EQ(hex(from(six, 4, 4)), "003000ff");
    EXPECT_EQ(hex(from(six, 40, 8)), "1100050200450100");
}

namespace {

/// The segment of 10.x.0.0/16, advertised by any IGP.
Bytes sid4(std::uint8_t second) {
    return tlv(34, {10, second, 0, 0, 16, 0, 0, 0});
}
const Bytes sid6 = tlv(35, {0x20, 1, 0xd, 0xb8, 0, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 48, 2, 0, 0});

/// An IS-IS adjacency between two addresses; parallel without them.
Bytes adjacency(const std::string& local, const std::string& remote) {
    const auto bytesOf = [](const std::string& text) {
        const Lumo::IpGenAddr address = Lumo::IpGenAddr::fromText(text.empty() ? "0.0.0.0" : text);
        return Bytes(address.bytes().begin(), address.bytes().begin() + 4);
    };
    const std::uint8_t type = local.empty() ? 1 : 4;
    return tlv(36, join({{type, 2, 0, 0}, bytesOf(local), bytesOf(remote), filled(12, 7)}));
}

/// A parallel adjacency of OSPF toward a router id (RFC 8287 section 5.3).
Bytes severalLinks(const Bytes& receiver) {
    return tlv(36, join({{1, 1, 0, 0}, filled(8, 0), {10, 255, 0, 7}, receiver}));
}

Bytes ofNoProtocol(const Bytes& receiver) {
    return tlv(36, join({{1, 0, 0, 0}, filled(12, 0), receiver}));
}

} // namespace

TEST(LspEcho, ReportsWhereProcessingEnded) {
    const Bytes ldpOther = tlv(1, {10, 7, 0, 0, 16});
    const Bytes ldpLonger = tlv(1, {10, 9, 0, 0, 24});
    const Bytes ldpLabelled = tlv(1, {10, 8, 0, 0, 16});
    const struct {
        const char* what;
        std::vector<Entry> labels;
        Bytes tlvs;
        const char* codes;
    } cases[]{
        {"popped by the router before", {}, fecStack({ldp4}), "3/1"},
        {"explicit null", {{0}}, fecStack({ldp4}), "3/1"},
        {"router alert", {{1}, {0}}, fecStack({ldp4}), "3/1"},
        {"the FEC's own label", {{200}}, fecStack({ldpLabelled}), "3/1"},
        {"another prefix", {{0}}, fecStack({ldpOther}), "4/1"},
        {"another prefix length", {{0}}, fecStack({ldpLonger}), "4/1"},
        {"not the FEC's label", {{0}}, fecStack({ldpLabelled}), "10/1"},
        {"the FEC's label missing", {}, fecStack({ldpLabelled}), "10/1"},
        {"an entropy label beneath", {{200}, {7}, {55}}, fecStack({ldp4}), "3/1"},
        {"an entropy label on top", {{7}, {55}, {100}}, fecStack({ldp4}), "8/1"},
        {"an indicator without its label", {{200}, {7}}, fecStack({ldp4}), "3/1"},
        {"switched", {{100}}, fecStack({ldp4}), "8/1"},
        {"switched on top", {{100}, {200}}, fecStack({ldp4}), "8/2"},
        {"switched beneath", {{0}, {200}, {100}}, fecStack({ldp4}), "8/1"},
        {"no entry", {{300}}, fecStack({ldp4}), "11/1"},
        {"no entry on top", {{300}, {100}}, fecStack({ldp4}), "11/2"},
        {"no entry beneath", {{200}, {300}}, fecStack({ldp4}), "11/1"},
        {"two FECs", {{200}}, fecStack({ldp4, ldpLabelled}), "3/2"},
        {"two FECs with labels", {{200}, {200}}, fecStack({ldpLabelled, ldpLabelled}), "3/2"},
        {"the upper FEC's label missing", {{200}}, fecStack({ldpLabelled, ldpLabelled}), "10/2"},
        {"the upper FEC unknown", {{200}}, fecStack({ldpOther, ldpLabelled}), "4/2"},
        {"the lower FEC unknown", {{200}}, fecStack({ldpLabelled, ldpOther}), "4/1"},
        {"Nil FEC beneath", {{200}, {0}}, fecStack({ldpLabelled, nilFec}), "3/2"},
        {"Nil FEC of a label", {{200}}, fecStack({ldp4, nilFec}), "10/1"},
        {"Nil FEC above hides the others", {{1}, {200}}, fecStack({nilFec, ldpOther}), "3/1"},
        {"a prefix segment", {}, fecStack({sid4(9)}), "3/1"},
        {"a prefix segment with its label", {{200}}, fecStack({sid4(8)}), "3/1"},
        {"another prefix segment", {}, fecStack({sid4(7)}), "4/1"},
        {"a prefix segment of IPv6", {{2}}, fecStack({sid6}), "3/1"},
        {"an adjacency segment", {}, fecStack({adjacency("10.255.0.7", "10.255.0.1")}), "3/1"},
        {"an adjacency to another interface",
         {},
         fecStack({adjacency("10.255.0.7", "10.255.0.9")}),
         "35/1"},
        {"one of several links in IS-IS", {}, fecStack({adjacency("", "")}), "35/1"},
        {"one of several links", {}, fecStack({severalLinks({10, 255, 0, 9})}), "3/1"},
        {"one of another router's", {}, fecStack({severalLinks({10, 255, 0, 8})}), "35/1"},
        {"one of several links, of no protocol", {}, fecStack({ofNoProtocol({0, 0, 0, 0})}), "3/1"},
        {"the same of another router's", {}, fecStack({ofNoProtocol({10, 255, 0, 8})}), "35/1"},
        {"an adjacency, then a prefix",
         {},
         fecStack({adjacency("10.255.0.7", "10.255.0.1"), sid4(9)}),
         "3/2"},
    };
    for (const auto& given : cases) {
        const Bytes packet = echo4(message({.tlvs = given.tlvs}));
        const Bytes frame =
            given.labels.empty() ? join({eth(ethIpv4), packet}) : labelled(given.labels, packet);
        EXPECT_EQ(codes(replyTo(frame)), given.codes) << given.what;
    }
}

TEST(LspEcho, RepliesOnlyToRequestsThatWantIt) {
    const auto codesOf = [](const Echo& echo) {
        return codes(replyTo(labelled({{0}}, echo4(message(echo)))));
    };
    EXPECT_EQ(codesOf({}), "3/1");
    EXPECT_EQ(codesOf({.replyMode = 1}), "none");
    EXPECT_EQ(codesOf({.type = 2}), "none");
    EXPECT_EQ(codesOf({.type = 3}), "none");
    EXPECT_EQ(codesOf({.replyMode = 0}), "1/0");
    EXPECT_EQ(codesOf({.replyMode = 4}), "1/0");
    EXPECT_EQ(codesOf({.replyMode = 5}), "1/0");
    EXPECT_EQ(codes(replyTo(labelled({{0}}, echo4(message({}), 0)))), "none");
}

TEST(LspEcho, SaysWhyItIsSilent) {
    const auto silence = [](const Bytes& packet, const OwnAddresses& from = own) {
        const Bytes frame = labelled({{0}}, packet);
        const EchoAnswer answer = lspEchoReply(read(frame), 0, at, FakeEchoTables(), from);
        EXPECT_EQ(answer.packet.empty(), answer.silence != EchoSilence::none);
        return answer.silence;
    };
    EXPECT_EQ(silence(echo4(message({}))), EchoSilence::none);
    EXPECT_EQ(silence(echo4(message({}), 0)), EchoSilence::noSourcePort);
    EXPECT_EQ(silence(echo4(message({})), {}), EchoSilence::noOwnAddress);
    EXPECT_EQ(silence(echo4(message({.type = 2}))), EchoSilence::notARequest);
    EXPECT_EQ(silence(echo4({1, 2, 3})), EchoSilence::notARequest);
    EXPECT_EQ(silence(echo4(message({.replyMode = 1}))), EchoSilence::noReplyWanted);
    EXPECT_EQ(silence(echo4(message({.flags = 2}))), EchoSilence::ttlNotExpired);
    const Bytes pad = tlv(3, join({{2}, filled(65'000, 0)}));
    EXPECT_EQ(silence(echo4(message({.tlvs = join({fecStack({ldp4}), pad})}))), EchoSilence::none);
    Ipv4 fields;
    fields.destination = 0x7f000001;
    fields.source = 0xffffffff;
    EXPECT_EQ(silence(ipv4(fields, udp(49152, 3503, message({})))), EchoSilence::sourceNotAHost);
    Bytes damaged = echo4(message({}));
    damaged[27] = 1;
    EXPECT_EQ(silence(damaged), EchoSilence::damaged);
    damaged = echo4(message({}));
    damaged[24] = damaged[25] = 7;
    EXPECT_EQ(silence(damaged), EchoSilence::damaged);
}

TEST(LspEcho, WithoutMappingsAReplyIsNoLongerThanItsRequest) {
    const Bytes unknown = tlv(100, counting(24));
    const Bytes pad = tlv(3, join({{2}, filled(101, 0)}));
    const Bytes asksWhere = mappingOf("10.255.0.7", "10.255.0.1", {{100}});
    for (const Bytes& tlvs :
         {Bytes(), fecStack({ldp4}), join({fecStack({ldp4}), pad}), unknown, pad,
          join({fecStack({ldp4}), unknown}), join({fecStack({ldp4}), asksWhere})}) {
        for (const std::uint8_t replyMode : std::initializer_list<std::uint8_t>{2, 3, 7}) {
            const Bytes four = echo4(message({.replyMode = replyMode, .tlvs = tlvs}));
            const Bytes six = echo6(message({.replyMode = replyMode, .tlvs = tlvs}));
            const std::size_t alert = replyMode == 3 ? 8 : 0;
            for (const Bytes& packet : {four, six}) {
                const bool isIpv4 = packet[0] >> 4U == 4;
                const Bytes reply = replyTo(join({eth(isIpv4 ? ethIpv4 : ethIpv6), packet}));
                EXPECT_FALSE(reply.empty());
                EXPECT_LE(reply.size(), packet.size() + alert) << hex(tlvs);
            }
        }
    }
}

TEST(LspEcho, TheMappingOfARequestMustAgreeWithWhereItCameIn) {
    const struct {
        const char* what;
        std::vector<Entry> labels;
        Bytes mapping;
        const char* codes;
    } cases[]{
        {"the port's address", {{100}}, mappingOf("10.255.0.1", "10.255.0.1", {{100}}), "14/0"},
        {"the router's address", {{100}}, mappingOf("10.255.0.9", "10.255.0.1", {{100}}), "14/0"},
        {"without labels to compare", {{100}}, mappingOf("10.255.0.9", "10.255.0.1"), "14/0"},
        {"another router", {{100}}, mappingOf("10.255.0.7", "10.255.0.1", {{100}}), "5/0"},
        {"another interface", {{100}}, mappingOf("10.255.0.1", "10.255.0.9", {{100}}), "5/0"},
        {"another label", {{100}}, mappingOf("10.255.0.1", "10.255.0.1", {{101}}), "5/0"},
        {"a label more", {{100}}, mappingOf("10.255.0.1", "10.255.0.1", {{100, 100}}), "5/0"},
        {"a label less", {{100}, {9}}, mappingOf("10.255.0.1", "10.255.0.1", {{100}}), "5/0"},
        {"unnumbered", {{100}}, mappingOf("10.255.0.9", "", {{100}}), "14/0"},
        {"unnumbered, another router", {{100}}, mappingOf("10.255.0.7", "", {{100}}), "5/0"},
        {"an unknown router", {{100}}, mappingOf("127.0.0.1", "", {{100}}), "14/0"},
        {"all routers", {{100}}, mappingOf("224.0.0.2", "", {{777}}), "14/0"},
        {"all routers, IPv6", {{100}}, mappingOf("ff02::2", "", {{777}}), "14/0"},
        {"the port's address, IPv6", {{100}}, mappingOf("2001:db8::ff", "2001:db8::ff"), "14/0"},
        {"another address, IPv6", {{100}}, mappingOf("2001:db8::fe", "2001:db8::fe"), "5/0"},
        {"the end", {{200}}, mappingOf("10.255.0.1", "10.255.0.1", {{200}}), "3/1"},
        {"the end, PHP", {}, mappingOf("10.255.0.1", "10.255.0.1", {{3}}), "3/1"},
        {"the end, another label", {{200}}, mappingOf("10.255.0.1", "10.255.0.1", {{201}}), "5/0"},
        {"the end, an unknown router", {{200}}, mappingOf("127.0.0.1", "", {{201}}), "3/1"},
    };
    FakeEchoTables tables;
    tables.downstreams = {{Lumo::IpGenAddr::fromText("10.0.2.2"), 1500, {Lumo::MplsLabel(300)}}};
    for (const auto& given : cases) {
        const Bytes packet = echo4(message({.tlvs = join({fecStack({ldp4}), given.mapping})}));
        const Bytes frame =
            given.labels.empty() ? join({eth(ethIpv4), packet}) : labelled(given.labels, packet);
        EXPECT_EQ(codes(lspEchoReply(read(frame), 0, at, tables, own).packet), given.codes)
            << given.what;
    }
}

TEST(LspEcho, SaysWhichFecsEndHereToWhoeverTracesTheOthers) {
    const Bytes ldpLabelled = tlv(1, {10, 8, 0, 0, 16});
    const struct {
        const char* what;
        std::vector<Entry> labels;
        Bytes fecs;
        std::size_t ended;
    } cases[]{
        {"its own", {{100}}, fecStack({ldp4}), 0},
        {"of a label popped here", {{200}, {100}}, fecStack({ldpLabelled, ldp4}), 1},
        {"of a label popped before", {{100}}, fecStack({ldpLabelled, ldp4}), 1},
        {"of three", {{100}}, fecStack({ldpLabelled, nilFec, ldp4}), 2},
        {"one beneath", {{100}, {200}}, fecStack({ldp4, ldpLabelled}), 0},
        {"without FECs of labels above", {{200}, {100}}, fecStack({ldp4}), 0},
    };
    FakeEchoTables tables;
    tables.downstreams = {{Lumo::IpGenAddr::fromText("10.0.2.2"), 1500, {Lumo::MplsLabel(300)}}};
    for (const auto& given : cases) {
        const Bytes request = message({.tlvs = join({given.fecs, mappingOf("224.0.0.2", "")})});
        const Bytes frame = labelled(given.labels, echo4(request));
        const std::string reply = hex(lspEchoReply(read(frame), 0, at, tables, own).packet);
        const std::string pop = "0003000402000000"; // of an unspecified peer, without the FEC
        std::size_t pops = 0;
        for (auto found = reply.find(pop); found != reply.npos;
             found = reply.find(pop, found + 1)) {
            ++pops;
        }
        EXPECT_EQ(pops, given.ended) << given.what;
    }
}

TEST(LspEcho, MandatoryTlvsThatAreUnknownAreReturnedWhateverTheReplyMode) {
    const Bytes replyPath = tlv(21, {0, 0, 0, 0});
    const Bytes frame = labelled(
        {{0}}, echo4(message({.replyMode = 5, .tlvs = join({fecStack({ldp4}), replyPath})})));
    const Bytes reply = replyTo(frame);
    EXPECT_EQ(codes(reply), "2/0");
    EXPECT_NE(hex(reply).find("00090008" + hex(replyPath)), std::string::npos);
    EXPECT_EQ(codes(replyTo(labelled({{0}}, echo4(message({.replyMode = 5}))))), "1/0");
}

TEST(LspEcho, MappingsOfUnknownMandatoryPartsAreNotUnderstood) {
    const auto codesWith = [](std::uint16_t type) {
        const Bytes mapping = tlv(20, join({{5, 220, 1, 0},
                                            {10, 255, 0, 1},
                                            {10, 255, 0, 1},
                                            {0, 0},
                                            u16(8),
                                            tlv(type, u32(0))}));
        const Bytes packet = echo4(message({.tlvs = join({fecStack({ldp4}), mapping})}));
        return codes(replyTo(labelled({{200}}, packet)));
    };
    EXPECT_EQ(codesWith(1), "3/1"); // multipath data
    EXPECT_EQ(codesWith(3), "3/1"); // a change of the FEC stack
    EXPECT_EQ(codesWith(4), "2/0");
    EXPECT_EQ(codesWith(0x7fff), "2/0");
    EXPECT_EQ(codesWith(0x8000), "3/1");
}

TEST(LspEcho, RepliesOnlyToExpiredTtlOnRequest) {
    const Bytes packet = echo4(message({.flags = 2}));
    EXPECT_EQ(codes(replyTo(labelled({{0, 0, 2}}, packet))), "none");
    EXPECT_EQ(codes(replyTo(labelled({{0, 0, 1}, {0, 0, 9}}, packet))), "3/1");
    EXPECT_EQ(codes(replyTo(join({eth(ethIpv4), packet}))), "3/1");
}

TEST(LspEcho, IsRecognisedByItsHeaders) {
    const auto isEcho = [](const Bytes& packet) {
        const Bytes frame = labelled({{0}}, packet);
        return isMplsEcho(read(frame).ip);
    };
    const Bytes request = udp(49152, 3503, message({}));
    Ipv4 loopback;
    loopback.destination = 0x7fffffff;
    EXPECT_TRUE(isEcho(ipv4(loopback, request)));
    EXPECT_FALSE(isEcho(ipv4({}, request)));
    EXPECT_FALSE(isEcho(ipv4(loopback, udp(3503, 3504, message({})))));
    EXPECT_TRUE(isEcho(ipv4(loopback, join({request, filled(2, 0)}))));
    EXPECT_FALSE(isEcho(ipv4(loopback, cut(request, 7))));
    loopback.protocol = protocolTcp;
    EXPECT_FALSE(isEcho(ipv4(loopback, request)));
    EXPECT_FALSE(isEcho(ipv6({}, request)));
    EXPECT_TRUE(isEcho(echo6(message({}))));
}

TEST(LspEcho, NeedsAValidChecksum) {
    Bytes six = echo6(message({}));
    six.back() ^= 1U;
    EXPECT_TRUE(replyTo(labelled({{0}}, six)).empty());
    Bytes none = echo6(message({}));
    none[46] = none[47] = 0;
    EXPECT_TRUE(replyTo(labelled({{0}}, none)).empty());
    Bytes four = echo4(message({}));
    four[27] = 1;
    EXPECT_TRUE(replyTo(labelled({{0}}, four)).empty());
}

TEST(LspEcho, RepliesOnlyToSingleHosts) {
    for (const std::uint32_t source : {0U, 0x7f000001U, 0xe0000005U, 0xffffffffU}) {
        Ipv4 fields;
        fields.source = source;
        fields.destination = 0x7f000001;
        const Bytes packet = ipv4(fields, udp(49152, 3503, message({})));
        EXPECT_TRUE(replyTo(labelled({{0}}, packet)).empty()) << source;
    }
}

TEST(LspEcho, UsesTheTimeFormatOfNtp) {
    EXPECT_EQ(ntpTime({0, 0}), 2208988800ULL << 32U);
    EXPECT_EQ(ntpTime({0, 250'000'000}), (2208988800ULL << 32U) + 0x40000000U);
    EXPECT_EQ(ntpTime({0, 999'999'999}), (2208988800ULL << 32U) + 0xfffffffbU);
    EXPECT_EQ(ntpTime({2'085'978'496, 0}), 0U); // 2036-02-07 06:28:16
}

} // namespace LspEchoTest
