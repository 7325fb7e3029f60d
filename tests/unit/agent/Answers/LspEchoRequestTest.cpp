#include "Answers/LspEchoRequest.h"

#include "EchoTesting.h"

namespace LspEchoRequestTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using namespace TestSupport::Raw;
using Fault = LspEchoRequest::Fault;

namespace {

/// The reply to a request with these TLVs beneath explicit null, from the MPLS echo header on.
Bytes replyOn(const Bytes& tlvs) {
    const Bytes reply = replyTo(labelled({{0}}, echo4(message({.tlvs = tlvs}))));
    return reply.size() < 28 ? Bytes{} : from(reply, 28, reply.size() - 28);
}

/// Return code and subcode in it.
std::string codesOn(const Bytes& tlvs) {
    return hex(from(replyOn(tlvs), 6, 2));
}

const Bytes fec = fecStack({ldp4});
/// A downstream detailed mapping to all routers, with a multipath sub-TLV.
const Bytes mapping =
    tlv(20, join({{5, 220, 1, 0, 224, 0, 0, 2, 224, 0, 0, 2, 0, 0, 0, 8}, tlv(1, {0, 0, 0, 0})}));

} // namespace

TEST(LspEchoMessage, DamagedRequestsAreMalformed) {
    const struct {
        const char* what;
        Bytes tlvs;
    } cases[]{
        {"no TLVs", {}},
        {"no target FEC stack", tlv(3, {1})},
        {"an empty target FEC stack", fecStack({})},
        {"two target FEC stacks", join({fec, fec})},
        {"a prefix longer than an address", fecStack({tlv(1, {10, 9, 0, 0, 33})})},
        {"an IPv4 prefix too short", fecStack({tlv(1, {10, 9, 0, 16})})},
        {"an IPv4 prefix too long", fecStack({tlv(1, {10, 9, 0, 0, 0, 16})})},
        {"an IPv6 prefix of IPv4", fecStack({tlv(2, {10, 9, 0, 0, 16})})},
        {"an IPv6 prefix longer than an address", fecStack({tlv(2, join({filled(16, 0), {129}}))})},
        {"a Nil FEC too short", fecStack({tlv(16, {0, 0, 0})})},
        {"a FEC beyond its stack", tlv(1, {0, 1, 0, 5, 10, 9, 0, 0})},
        {"a FEC without its padding", tlv(1, {0, 1, 0, 5, 10, 9, 0, 0, 16})},
        {"half a sub-TLV header", tlv(1, join({ldp4, {0, 1}}))},
        {"half a TLV header", join({fec, {0, 3}})},
        {"a TLV beyond the message", join({fec, {0, 3, 0, 9, 1, 0, 0, 0}})},
        {"an optional TLV beyond the message", join({fec, {0x80, 0, 0xff, 0xff}})},
        {"an empty pad", join({fec, tlv(3, {})})},
        {"a reply TOS too short", join({fec, tlv(10, {1, 0, 0})})},
        {"a mapping too short", join({fec, tlv(20, filled(3, 1))})},
        {"a mapping without address type", join({fec, tlv(20, filled(16, 0))})},
        {"a mapping of an unknown address type", join({fec, tlv(20, filled(40, 6))})},
        {"a mapping's sub-TLVs cut short", join({fec, cut(mapping, 20), {0, 1, 0, 1}})},
        {"two mappings", join({fec, mapping, mapping})},
        {"a mapping of half a label",
         join({fec, tlv(20, {5, 220, 5, 0, 0, 0, 0, 8, 0, 2, 0, 3, 0, 0, 0, 0})})},
        {"a prefix segment too short", fecStack({tlv(34, {10, 9, 0, 0, 16})})},
        {"a prefix segment longer than an address",
         fecStack({tlv(34, {10, 9, 0, 0, 33, 0, 0, 0})})},
        {"an IPv6 prefix segment of IPv4", fecStack({tlv(35, {10, 9, 0, 0, 16, 0, 0, 0})})},
        {"an adjacency too short", fecStack({tlv(36, {4, 1, 0})})},
        {"an adjacency with system ids of OSPF",
         fecStack({tlv(36, join({{4, 1, 0, 0}, filled(20, 0)}))})},
        {"an IPv6 adjacency with IPv4 addresses",
         fecStack({tlv(36, join({{6, 1, 0, 0}, filled(16, 0)}))})},
        {"an adjacency of an unknown type",
         fecStack({tlv(36, join({{5, 1, 0, 0}, filled(16, 0)}))})},
        {"damage behind an unknown TLV", join({fec, tlv(99, {}), {0, 1, 0, 1}})},
    };
    for (const auto& given : cases) {
        EXPECT_EQ(codesOn(given.tlvs), "0100") << given.what;
    }
    const Bytes version = labelled({{0}}, echo4(message({.version = 2})));
    EXPECT_EQ(codes(replyTo(version)), "1/0");
}

TEST(LspEchoMessage, UnknownMandatoryTlvsAreReturned) {
    const Bytes unknown = tlv(99, {1, 2, 3, 4, 5});
    const Bytes other = tlv(0x7fff, {});
    const Bytes reply = replyOn(join({unknown, fec, tlv(3, {1}), other}));
    EXPECT_EQ(hex(from(reply, 6, 2)), "0200");
    EXPECT_EQ(hex(from(reply, 32, reply.size() - 32)), hex(tlv(9, join({unknown, other}))));
    const Bytes strangeFec = fecStack({tlv(6, filled(13, 1)), ldp4});
    const Bytes fecReply = replyOn(strangeFec);
    EXPECT_EQ(hex(from(fecReply, 6, 2)), "0200");
    EXPECT_EQ(hex(from(fecReply, 32, fecReply.size() - 32)), hex(tlv(9, strangeFec)));
}

TEST(LspEchoMessage, UnknownOptionalTlvsAreIgnored) {
    EXPECT_EQ(codesOn(join({tlv(0x8000, {1}), fec, tlv(0xffff, {})})), "0301");
    EXPECT_EQ(codesOn(fecStack({tlv(0x8001, {1, 2}), ldp4})), "0301");
    EXPECT_EQ(codesOn(fecStack({tlv(0x8001, {1, 2})})), "0100"); // which leaves no FEC
}

TEST(LspEchoMessage, PadsAreReturnedOnRequest) {
    const Bytes copied = tlv(3, {2, 9, 9, 9, 9});
    const Bytes reply = replyOn(join({tlv(3, {1, 8, 8}), fec, copied}));
    EXPECT_EQ(hex(from(reply, 6, 2)), "0301");
    EXPECT_EQ(hex(from(reply, 32, reply.size() - 32)), hex(copied));
}

TEST(LspEchoMessage, TheReplyHasTheTosRequested) {
    const Bytes tlvs = join({fec, tlv(10, {0xb8, 0, 0, 0})});
    const Bytes reply = replyTo(labelled({{0}}, echo4(message({.tlvs = tlvs}))));
    EXPECT_EQ(reply.at(1), 0xb8);
    EXPECT_EQ(codes(reply), "3/1");
}

TEST(LspEchoMessage, DownstreamsAreReportedOnRequest) {
    FakeEchoTables known;
    known.downstreams = {{Lumo::IpGenAddr::fromText("10.0.2.2"), 1492, {Lumo::MplsLabel(300)}},
                         {Lumo::IpGenAddr::fromText("2001:db8::7"), 9000, {Lumo::implicitNull}}};
    const Bytes asks = labelled({{100}}, echo4(message({.tlvs = join({fec, mapping})})));
    const Bytes reply = lspEchoReply(read(asks), 0, at, known, own).packet;
    EXPECT_EQ(codes(reply), "14/0");
    EXPECT_EQ(hex(from(reply, 60, reply.size() - 60)),
              "0014001805d401000a0002020a00020208010008"
              "00020004"
              "0012c100"
              "0014003023280300"
              "20010db800000000000000000000000720010db8000000000000000000000007"
              "08010008"
              "00020004"
              "00003100");
    const Bytes doesNotAsk = labelled({{100}}, echo4(message({})));
    const Bytes plain = lspEchoReply(read(doesNotAsk), 0, at, known, own).packet;
    EXPECT_EQ(codes(plain), "8/1");
    EXPECT_EQ(plain.size(), 60U);
    EXPECT_EQ(codesOn(join({fec, mapping})), "0301"); // the egress has none
}

TEST(LspEchoMessage, TheMappingBeforeTheDetailedOneIsAnsweredByTheSame) {
    FakeEchoTables known;
    known.downstreams = {{Lumo::IpGenAddr::fromText("10.0.2.2"), 1492, {Lumo::MplsLabel(300)}}};
    const auto old = [](const Bytes& router, const Bytes& behind) {
        return tlv(2, join({{5, 220, 1, 0}, router, router, behind}));
    };
    const auto replyFor = [&](const Bytes& asked) {
        const Bytes frame = labelled({{100}}, echo4(message({.tlvs = join({fec, asked})})));
        return lspEchoReply(read(frame), 0, at, known, own).packet;
    };
    const Bytes all{224, 0, 0, 2};
    const Bytes right{10, 255, 0, 1};
    const Bytes noMultipath{0, 0, 0, 0};
    const Bytes reply = replyFor(old(all, noMultipath));
    EXPECT_EQ(codes(reply), "8/1");
    EXPECT_EQ(hex(from(reply, 60, reply.size() - 60)), "0002001405d401000a0002020a00020200000000"
                                                       "0012c100");
    const Bytes multipath{8, 0, 0, 4, 127, 0, 0, 1};
    EXPECT_EQ(codes(replyFor(old(right, join({multipath, u32(100U << 12U)})))), "8/1");
    EXPECT_EQ(codes(replyFor(old(right, join({multipath, u32(101U << 12U)})))), "5/0");
    EXPECT_EQ(codes(replyFor(old(right, {8, 0, 0, 9, 127, 0, 0, 1}))), "1/0");
    EXPECT_EQ(codes(replyFor(old(right, {0, 0, 0}))), "1/0");
    EXPECT_EQ(codes(replyFor(join({old(all, noMultipath), old(all, noMultipath)}))), "1/0");
}

TEST(LspEchoMessage, ADownstreamHasTheLabelsBeneath) {
    FakeEchoTables known;
    known.downstreams = {{Lumo::IpGenAddr(), 1500, {Lumo::MplsLabel(300)}}};
    const Bytes asks =
        labelled({{100}, {7, 0, 9}, {55}}, echo4(message({.tlvs = join({fec, mapping})})));
    const Bytes reply = lspEchoReply(read(asks), 0, at, known, own).packet;
    EXPECT_EQ(codes(reply), "14/0");
    EXPECT_EQ(hex(from(reply, 60, reply.size() - 60)), "0014002005dc02007f000001000000000803"
                                                       "00100002000c0012c0000000700000037100");
}

TEST(LspEchoMessage, TheArrivalIsReportedOnRequestOrWhenTheMappingDisagrees) {
    const auto tlvsOf = [](const Bytes& asked, const std::vector<Entry>& labels) {
        FakeEchoTables known;
        const Bytes frame = labelled(labels, echo4(message({.tlvs = join({fec, asked})})));
        const Bytes reply = lspEchoReply(read(frame), 0, at, known, own).packet;
        return codes(reply) + " " + hex(from(reply, 60, reply.size() - 60));
    };
    const std::string arrival = "00070010010000000aff00010aff0001";
    const std::string right = "10.255.0.1";
    EXPECT_EQ(tlvsOf(mappingOf(right, right, {{200}}, 2), {{200, 3, 9}}),
              "3/1 " + arrival + "000c8709");
    EXPECT_EQ(tlvsOf(mappingOf(right, right, {{200}}), {{200, 3, 9}}), "3/1 ");
    EXPECT_EQ(tlvsOf(mappingOf(right, right, {{201}}), {{200, 3, 9}}),
              "5/0 " + arrival + "000c8709");
    EXPECT_EQ(tlvsOf(mappingOf("127.0.0.1", ""), {{100, 0, 1}}), "6/0 " + arrival + "00064101");
    const Bytes six =
        labelled({{2, 0, 1}},
                 echo6(message({.tlvs = join({fecStack({ldp6}), mappingOf("::1", "", {}, 2)})})));
    const Bytes reply = lspEchoReply(read(six), 0, at, FakeEchoTables(), own).packet;
    EXPECT_EQ(hex(from(reply, 80, 8)), "0007002803000000");
    EXPECT_EQ(hex(from(reply, 88, 36)),
              hex(join({ipv6Address(0xff), ipv6Address(0xff), stack({{2, 0, 1}})})));
}

TEST(LspEchoMessage, TruncatedRequestsAreMalformedOrEmpty) {
    const Bytes whole = message(
        {.tlvs = join({fecStack({ldp4, ldp6, nilFec}), mapping, tlv(3, {2, 1}), tlv(99, {1})})});
    ASSERT_EQ(LspEchoRequest::read(whole)->fault, Fault::notUnderstood);
    // Where a TLV ends, what is left is whole.
    const std::vector<std::size_t> ends{80, 108, 116};
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const Bytes part = cut(whole, size);
        const auto request = LspEchoRequest::read(part);
        ASSERT_EQ(request.has_value(), size >= 32) << size;
        if (request) {
            const bool isEnd = std::find(ends.begin(), ends.end(), size) != ends.end();
            EXPECT_EQ(request->fault, isEnd ? Fault::none : Fault::malformed) << size;
        }
    }
}

} // namespace LspEchoRequestTest
