#include "FastPath/LabelRewrite.h"

#include <gtest/gtest.h>

#include "FrameBytes.h"

namespace LabelRewriteTest {

using namespace OvixAgent;
using namespace TestSupport::Raw;
using Kind = DecidedRewrite::Kind;
using Ovix::PktHdrType;

namespace {

/// A rewrite that imposes labels in pipe mode with TTL 9.
DecidedRewrite imposing(Kind kind, const std::vector<std::uint32_t>& labels) {
    DecidedRewrite rewrite;
    rewrite.kind = kind;
    rewrite.ttl = 9;
    for (const std::uint32_t label : labels) {
        rewrite.label[rewrite.labels++] = label << 12U;
    }
    rewrite.grows = growth(rewrite);
    return rewrite;
}

DecidedRewrite uniform(DecidedRewrite rewrite) {
    rewrite.isUniform = true;
    return rewrite;
}

DecidedRewrite classed(DecidedRewrite rewrite, std::uint8_t tc, std::uint8_t pushedTc) {
    rewrite.tc = tc;
    rewrite.pushedTc = pushedTc;
    return rewrite;
}

DecidedRewrite popping(PktHdrType exposed, bool isUniform, bool exposesTc = false) {
    DecidedRewrite rewrite = imposing(Kind::pop, {});
    rewrite.exposed = exposed;
    rewrite.isUniform = isUniform;
    rewrite.exposesTc = exposesTc;
    return rewrite;
}

struct Rewritten {
    Bytes packet;
    PktHdrType type;
};

Rewritten rewritten(const DecidedRewrite& rewrite, const Bytes& packet) {
    constexpr std::size_t room = 40;
    Bytes memory = join({filled(room, 0xa5), packet});
    WritableFrame frame{memory.data(), static_cast<std::uint32_t>(memory.size()), 0, 0, 0, {}};
    PacketWork work;
    work.frame = &frame;
    work.packet = memory.data() + room;
    work.length = static_cast<std::uint32_t>(packet.size());
    applyRewrite(rewrite, work);
    EXPECT_EQ(work.packet + work.length, memory.data() + memory.size());
    return {{work.packet, work.packet + work.length}, work.type};
}

constexpr std::uint8_t keep = DecidedRewrite::keep;
const Bytes beneath = filled(12, 7);

Bytes packetOf(const std::vector<Entry>& entries) {
    return join({stack(entries), beneath});
}

} // namespace

TEST(LabelRewriteTest, LabelsAreSwappedAndPushed) {
    const struct {
        const char* what;
        DecidedRewrite rewrite;
        std::vector<Entry> in;
        std::vector<Entry> out;
    } cases[]{
        {"swap", imposing(Kind::swap, {300}), {{100, 5, 64}}, {{300, 5, 63}}},
        {"swap above a label",
         imposing(Kind::swap, {300}),
         {{100, 5, 64}, {200, 1, 8}},
         {{300, 5, 63}, {200, 1, 8}}},
        {"swap with a class",
         classed(imposing(Kind::swap, {300}), 2, keep),
         {{100, 5, 64}},
         {{300, 2, 63}}},
        {"swap for three, pipe",
         imposing(Kind::swap, {301, 302, 303}),
         {{100, 5, 64}},
         {{301, 5, 9}, {302, 5, 9}, {303, 5, 63}}},
        {"swap for two, uniform",
         uniform(imposing(Kind::swap, {301, 302})),
         {{100, 5, 2}},
         {{301, 5, 1}, {302, 5, 1}}},
        {"swap for two, a class above",
         classed(imposing(Kind::swap, {301, 302}), keep, 6),
         {{100, 5, 64}},
         {{301, 6, 9}, {302, 5, 63}}},
        {"swap for two, two classes",
         classed(imposing(Kind::swap, {301, 302}), 0, 7),
         {{100, 5, 64}},
         {{301, 7, 9}, {302, 0, 63}}},
        {"push, pipe", imposing(Kind::push, {301}), {{100, 5, 64}}, {{301, 5, 9}, {100, 5, 63}}},
        {"push two, uniform",
         uniform(imposing(Kind::push, {301, 302})),
         {{100, 5, 64}},
         {{301, 5, 63}, {302, 5, 63}, {100, 5, 63}}},
        {"push with a class",
         classed(imposing(Kind::push, {301}), 1, keep),
         {{100, 5, 64}},
         {{301, 1, 9}, {100, 5, 63}}},
        {"push six",
         imposing(Kind::push, {31, 32, 33, 34, 35, 36}),
         {{100, 0, 64}},
         {{31, 0, 9}, {32, 0, 9}, {33, 0, 9}, {34, 0, 9}, {35, 0, 9}, {36, 0, 9}, {100, 0, 63}}},
    };
    for (const auto& given : cases) {
        const Rewritten made = rewritten(given.rewrite, packetOf(given.in));
        EXPECT_EQ(made.packet, packetOf(given.out)) << given.what;
        EXPECT_EQ(made.type, PktHdrType::mpls) << given.what;
    }
}

TEST(LabelRewriteTest, APopExposesWhatLiesBeneath) {
    const auto ip4 = [](std::uint8_t ttl, std::uint8_t tos) {
        return ipv4({.ttl = ttl, .tos = tos}, udp());
    };
    const Bytes six = ipv6({}, udp());
    const auto four = PktHdrType::ipv4;
    const struct {
        const char* what;
        DecidedRewrite rewrite;
        Bytes beneath;
        Bytes out;
    } cases[]{
        {"IPv4, pipe", popping(four, false), ip4(64, 0), ip4(64, 0)},
        {"IPv4, uniform", popping(four, true), ip4(64, 0), ip4(29, 0)},
        {"IPv4, its class", popping(four, false, true), ip4(64, 0), ip4(64, 5U << 5U)},
        {"IPv6, pipe", popping(PktHdrType::ipv6, false), six, six},
    };
    for (const auto& given : cases) {
        const Rewritten made =
            rewritten(given.rewrite, join({stack({{100, 5, 30}}), given.beneath}));
        EXPECT_EQ(made.packet, given.out) << given.what;
        EXPECT_EQ(made.type, given.rewrite.exposed) << given.what;
    }
}

TEST(LabelRewriteTest, APopOfALabelAboveAnother) {
    const Bytes in = packetOf({{100, 5, 30}, {200, 1, 64}});
    EXPECT_EQ(rewritten(popping(PktHdrType::mpls, false), in).packet, packetOf({{200, 1, 64}}));
    EXPECT_EQ(rewritten(popping(PktHdrType::mpls, true), in).packet, packetOf({{200, 1, 29}}));
    EXPECT_EQ(rewritten(popping(PktHdrType::mpls, true, true), in).packet,
              packetOf({{200, 5, 29}}));
}

TEST(LabelRewriteTest, PacketsGrowByWhatIsImposed) {
    EXPECT_EQ(growth(imposing(Kind::swap, {1})), 0);
    EXPECT_EQ(growth(imposing(Kind::swap, {1, 2, 3})), 8);
    EXPECT_EQ(growth(imposing(Kind::push, {1, 2, 3})), 12);
    EXPECT_EQ(growth(imposing(Kind::pop, {})), -4);
}

} // namespace LabelRewriteTest
