#include "Ovix/rewrite/MplsRewrites.h"

#include <gtest/gtest.h>
#include <vector>

#include "Ovix/rewrite/MplsRewriteHelper.h"

namespace MplsRewritesTest {

namespace {

using namespace Ovix;
using Bytes = std::vector<std::uint8_t>;
using Lumo::MplsLabelAction;
using Mpls::PayloadType;
using Mpls::TtlMode;

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
Bytes entry(std::uint32_t label, std::uint8_t tc, bool bos, std::uint8_t ttl) {
    Bytes bytes(4);
    Lumo::MplsLabelEntry(Lumo::MplsLabel(label), tc, bos, ttl).store(bytes.data());
    return bytes;
}
std::uint16_t checksum(const Bytes& header) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i + 1 < header.size(); i += 2) {
        sum += static_cast<std::uint32_t>(header[i] << 8U) | header[i + 1];
    }
    while (sum > 0xffff) {
        sum = (sum & 0xffffU) + (sum >> 16U);
    }
    return static_cast<std::uint16_t>(~sum);
}
/// `ident` varies the checksum.
Bytes ipv4(std::uint8_t ttl, std::uint16_t ident = 0) {
    Bytes header{0x45,
                 0xa0,
                 0,
                 20,
                 static_cast<std::uint8_t>(ident >> 8U),
                 static_cast<std::uint8_t>(ident),
                 0,
                 0,
                 ttl,
                 17,
                 0,
                 0,
                 10,
                 0,
                 0,
                 1,
                 10,
                 0,
                 0,
                 2};
    const std::uint16_t sum = checksum(header);
    header[10] = static_cast<std::uint8_t>(sum >> 8U);
    header[11] = static_cast<std::uint8_t>(sum);
    return header;
}
Bytes ipv6(std::uint8_t hopLimit) {
    Bytes header(40, 0xa5);
    header[0] = 0x6e;
    header[7] = hopLimit;
    return header;
}

/// A packet under rewrite, starting at its label stack by default.
struct Subject {
    explicit Subject(const Bytes& bytes, PktHdrType outer = PktHdrType::mpls)
        : context(Tessel::make<RoutingContext>(
              1U, Tessel::make<PacketContext>(Lumo::globalPktManager()->newPkt(bytes), outer),
              nullptr)) {}

    Bytes bytes() const {
        const auto data = context->packetContext()->pkt()->data();
        return {data.begin(), data.end()};
    }
    PktHdrType outer() const { return context->packetContext()->outerType(); }

    /// The reason of a failure, or "".
    std::string apply(const Ptr<RewriteImpl>& impl) const {
        const auto failed = impl->apply(context);
        return failed ? std::string(failed->reason()) : "";
    }
    std::string pop(TtlMode mode, PayloadType payload = PayloadType::automatic) const {
        return apply(MplsPopRewriteImpl::fromInfo(Tessel::make<MplsPopRewriteInfo>(payload, mode)));
    }
    std::string swap(const std::vector<std::uint32_t>& labels, TtlMode mode = TtlMode::uniform,
                     int tc = -1) const {
        return apply(MplsSwapRewriteImpl::fromInfo(
            Tessel::make<MplsSwapRewriteInfo>(operation(labels, tc), mode)));
    }
    std::string push(const std::vector<std::uint32_t>& labels, TtlMode mode = TtlMode::uniform,
                     int tc = -1) const {
        return apply(MplsIpPushRewriteImpl::fromInfo(
            Tessel::make<MplsIpPushRewriteInfo>(operation(labels, tc), mode)));
    }
    std::string age() const {
        return apply(MplsTtlRewriteImpl::fromInfo(Tessel::make<MplsTtlRewriteInfo>()));
    }
    static Lumo::UnboundedMplsLabelOperation operation(const std::vector<std::uint32_t>& labels,
                                                       int tc = -1) {
        static Bytes packed;
        packed.clear();
        for (const std::uint32_t label : labels) {
            packed = packed + Bytes{static_cast<std::uint8_t>(label >> 16U),
                                    static_cast<std::uint8_t>(label >> 8U),
                                    static_cast<std::uint8_t>(label)};
        }
        Lumo::UnboundedMplsLabelOperation made(packed);
        if (tc >= 0) {
            made.tc = static_cast<std::uint8_t>(tc);
        }
        return made;
    }

    Ptr<RoutingContext> context;
};

TEST(MplsSwap, ReplacesTheTopAndPushesTheRest) {
    Subject one(entry(100, 5, true, 64) + ipv4(9));
    EXPECT_EQ(one.swap({300}), "");
    EXPECT_EQ(one.bytes(), entry(300, 5, true, 63) + ipv4(9));
    Subject three(entry(100, 5, true, 64));
    EXPECT_EQ(three.swap({301, 302, 303}), "");
    EXPECT_EQ(three.bytes(),
              entry(301, 5, false, 63) + entry(302, 5, false, 63) + entry(303, 5, true, 63));
    Subject pipe(entry(100, 5, false, 64));
    EXPECT_EQ(pipe.swap({301, 302}, TtlMode::pipe, 1), "");
    EXPECT_EQ(pipe.bytes(), entry(301, 1, false, 255) + entry(302, 1, false, 63));
}

TEST(MplsSwap, TheLabelsAboveMayHaveAClassOfTheirOwn) {
    for (const bool hasTc : {false, true}) {
        auto operation = Subject::operation({301, 302, 303}, hasTc ? 1 : -1);
        operation.pushedTc = 6;
        Subject packet(entry(100, 5, true, 64));
        EXPECT_EQ(packet.apply(MplsSwapRewriteImpl::fromInfo(
                      Tessel::make<MplsSwapRewriteInfo>(operation, TtlMode::uniform))),
                  "");
        EXPECT_EQ(packet.bytes(), entry(301, 6, false, 63) + entry(302, 6, false, 63) +
                                      entry(303, std::uint8_t(hasTc ? 1 : 5), true, 63));
    }
}

TEST(MplsSwap, RefusesWhatIsNoWholeEntryOrDoesNotFit) {
    for (std::size_t size = 0; size < 4; ++size) {
        EXPECT_EQ(Subject(Bytes(size, 0xa5)).swap({300}), "Label stack cut short");
    }
    const Bytes largest = entry(100, 0, true, 64) + Bytes(65531);
    Subject full(largest);
    EXPECT_EQ(full.swap({300, 301}), "Label stack does not fit the packet");
    EXPECT_EQ(full.bytes(), largest);
}

TEST(MplsPop, UniformCarriesTheTtlIntoWhatIsExposed) {
    Subject toLabel(entry(100, 1, false, 30) + entry(200, 2, true, 90));
    EXPECT_EQ(toLabel.pop(TtlMode::uniform), "");
    EXPECT_EQ(toLabel.bytes(), entry(200, 2, true, 29));
    EXPECT_EQ(toLabel.outer(), PktHdrType::mpls);
    Subject toIpv6(entry(100, 1, true, 30) + ipv6(90));
    EXPECT_EQ(toIpv6.pop(TtlMode::uniform), "");
    EXPECT_EQ(toIpv6.bytes(), ipv6(29));
    EXPECT_EQ(toIpv6.outer(), PktHdrType::ipv6);
}

TEST(MplsPop, KeepsTheIpv4ChecksumRightForEveryHeader) {
    for (std::uint32_t ident = 0; ident < 0x10000; ident += 7) {
        const auto id = static_cast<std::uint16_t>(ident);
        Subject packet(entry(100, 0, true, static_cast<std::uint8_t>(2 + ident % 254)) +
                       ipv4(200, id));
        ASSERT_EQ(packet.pop(TtlMode::uniform), "");
        const Bytes out = packet.bytes();
        ASSERT_EQ(out[8], 1 + ident % 254);
        ASSERT_EQ(checksum(out), 0) << ident;
    }
}

TEST(MplsPop, PipeLeavesTheTtlBeneathAlone) {
    Subject packet(entry(100, 0, true, 30) + ipv4(90));
    EXPECT_EQ(packet.pop(TtlMode::pipe), "");
    EXPECT_EQ(packet.bytes(), ipv4(90));
    EXPECT_EQ(packet.outer(), PktHdrType::ipv4);
    EXPECT_FALSE(packet.context->packetContext()->ttlDecremented());
}

TEST(MplsPop, WritesTheClassIntoWhatIsExposedWhenAskedTo) {
    const auto popped = [](const Bytes& bytes, bool exposeTc) {
        Subject packet(bytes);
        EXPECT_EQ(packet.apply(MplsPopRewriteImpl::fromInfo(Tessel::make<MplsPopRewriteInfo>(
                      PayloadType::automatic, TtlMode::pipe, exposeTc))),
                  "");
        return packet.bytes();
    };
    const Bytes onLabel = entry(100, 5, false, 30) + entry(200, 2, true, 90);
    EXPECT_EQ(popped(onLabel, true), entry(200, 5, true, 90));
    EXPECT_EQ(popped(onLabel, false), entry(200, 2, true, 90));
    const Bytes packet = popped(entry(100, 5, true, 30) + ipv4(90), true);
    EXPECT_EQ(packet[1] >> 5U, 5U);
    EXPECT_EQ(checksum(packet), 0);
    EXPECT_EQ(popped(entry(100, 0, true, 30) + ipv6(90), true)[0], 0x60U);
    const Bytes ethernet(60, 0x11);
    Subject frame(entry(100, 5, true, 30) + ethernet);
    EXPECT_EQ(frame.apply(MplsPopRewriteImpl::fromInfo(
                  Tessel::make<MplsPopRewriteInfo>(PayloadType::ethernet, TtlMode::pipe, true))),
              "");
    EXPECT_EQ(frame.bytes(), ethernet);
}

TEST(MplsPop, RefusesAPayloadThatIsNotWhatTheLabelSaid) {
    const std::string contradicts = "Payload is not of the label's payload type";
    EXPECT_EQ(Subject(entry(1, 0, true, 9) + ipv4(9)).pop(TtlMode::uniform, PayloadType::ipv6),
              contradicts);
    EXPECT_EQ(Subject(entry(1, 0, true, 9) + ipv6(9)).pop(TtlMode::uniform, PayloadType::ipv4),
              contradicts);
    EXPECT_EQ(Subject(entry(1, 0, true, 9) + Bytes(19, 0x45)).pop(TtlMode::uniform), contradicts);
    EXPECT_EQ(Subject(entry(1, 0, true, 9)).pop(TtlMode::uniform), contradicts);
    EXPECT_EQ(Subject(entry(1, 0, false, 9) + Bytes(3)).pop(TtlMode::uniform),
              "Label stack cut short");
}

TEST(Ttl, GoesDownOnceHoweverManyRewrites) {
    Subject popSwap(entry(0, 0, false, 50) + entry(100, 0, true, 90));
    popSwap.pop(TtlMode::uniform);
    popSwap.swap({300});
    EXPECT_EQ(popSwap.bytes(), entry(300, 0, true, 49));
    Subject popPopSwap(entry(0, 0, false, 50) + entry(2, 0, false, 60) + entry(100, 0, true, 90));
    popPopSwap.pop(TtlMode::uniform);
    popPopSwap.pop(TtlMode::uniform);
    popPopSwap.swap({300});
    EXPECT_EQ(popPopSwap.bytes(), entry(300, 0, true, 49));
    Subject pipeThenSwap(entry(0, 0, false, 50) + entry(100, 0, true, 90));
    pipeThenSwap.pop(TtlMode::pipe);
    pipeThenSwap.swap({300});
    EXPECT_EQ(pipeThenSwap.bytes(), entry(300, 0, true, 89));
    Subject ageTwice(entry(100, 0, true, 90));
    ageTwice.age();
    ageTwice.age();
    EXPECT_EQ(ageTwice.bytes(), entry(100, 0, true, 89));
}

TEST(Ttl, OfAnEntropyLabelNeverReachesThePayload) {
    struct Case {
        std::uint8_t indicator, entropy, expected;
    };
    for (const Case& one : {Case{64, 0, 63}, Case{64, 99, 63}, Case{0, 0, 89}, Case{0, 99, 89}}) {
        Subject packet(entry(7, 0, false, one.indicator) + entry(5000, 0, false, one.entropy) +
                       entry(100, 0, true, 90));
        packet.pop(TtlMode::uniform, PayloadType::none);
        packet.pop(TtlMode::uniform, PayloadType::none);
        packet.swap({300});
        EXPECT_EQ(packet.bytes(), entry(300, 0, true, one.expected));
    }
}

TEST(MplsIpPush, TakesTcAndTtlFromWhatLiesBeneath) {
    Subject onLabel(entry(100, 4, true, 40));
    EXPECT_EQ(onLabel.push({601, 602}), "");
    EXPECT_EQ(onLabel.bytes(),
              entry(601, 4, false, 40) + entry(602, 4, false, 40) + entry(100, 4, true, 40));
    Subject onIp(ipv4(40), PktHdrType::ipv4);
    EXPECT_EQ(onIp.push({601, 602}), "");
    EXPECT_EQ(onIp.bytes(), entry(601, 5, false, 40) + entry(602, 5, true, 40) + ipv4(40));
    Subject onIpv6(ipv6(40), PktHdrType::ipv6);
    EXPECT_EQ(onIpv6.push({601}, TtlMode::pipe), "");
    EXPECT_EQ(onIpv6.bytes(), entry(601, 7, true, 255) + ipv6(40));
}

TEST(MplsIpPush, DeepStacksMoveToALargerBuffer) {
    Subject packet(entry(100, 0, true, 40));
    for (int i = 0; i < 15; ++i) {
        EXPECT_EQ(packet.push(std::vector<std::uint32_t>(33, 77)), "");
    }
    const Bytes out = packet.bytes();
    EXPECT_EQ(out.size(), (15U * 33 + 1) * 4);
    EXPECT_EQ(Bytes(out.end() - 4, out.end()), entry(100, 0, true, 40));
}

TEST(MplsRewriteHelper, RefusesWhatCannotBeDone) {
    const Lumo::MplsLabelEntry bottom(Lumo::MplsLabel(100), 0, true, 64);
    const Lumo::MplsLabelEntry middle(Lumo::MplsLabel(100), 0, false, 64);
    const auto make = [](Lumo::MplsLabelEntry top, MplsLabelAction action,
                         const std::vector<std::uint32_t>& labels, PayloadType payload) {
        return static_cast<bool>(MplsRewriteHelper::createMplsRewrite(
            nullptr, top, nullptr, action, Subject::operation(labels), payload, TtlMode::uniform,
            false));
    };
    EXPECT_TRUE(make(bottom, MplsLabelAction::swap, {300}, PayloadType::automatic));
    EXPECT_FALSE(make(bottom, MplsLabelAction::swap, {}, PayloadType::automatic));
    EXPECT_FALSE(make(bottom, MplsLabelAction::swap, {300, 3}, PayloadType::automatic));
    EXPECT_FALSE(make(bottom, MplsLabelAction::push, {}, PayloadType::automatic));
    EXPECT_FALSE(make(bottom, MplsLabelAction::none, {300}, PayloadType::automatic));
    EXPECT_FALSE(make(bottom, MplsLabelAction{9}, {300}, PayloadType::automatic));
    EXPECT_TRUE(make(middle, MplsLabelAction::pop, {}, PayloadType::undefined));
    EXPECT_TRUE(make(bottom, MplsLabelAction::pop, {}, PayloadType::ipv4));
    EXPECT_FALSE(make(bottom, MplsLabelAction::pop, {}, PayloadType::automatic));
    EXPECT_FALSE(make(bottom, MplsLabelAction::pop, {}, PayloadType::undefined));
    EXPECT_FALSE(MplsRewriteHelper::createMplsPopRewrite(
        nullptr, bottom, nullptr, PayloadType::none, TtlMode::uniform, false));
}

TEST(RewriteImpl, RefusesARecordOfAnotherKind) {
    EXPECT_DEATH(MplsSwapRewriteImpl::fromInfo(nullptr), "info");
    EXPECT_DEATH(MplsSwapRewriteImpl::fromInfo(Tessel::make<MplsTtlRewriteInfo>()), "info");
}

} // namespace

} // namespace MplsRewritesTest
