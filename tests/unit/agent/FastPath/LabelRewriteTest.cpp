#include "FastPath/LabelRewrite.h"

#include <gtest/gtest.h>

#include "FrameBytes.h"

namespace LabelRewriteTest {

using namespace OvixAgent;
using namespace TestSupport::Raw;
using Kind = DecidedRewrite::Kind;
using Ovix::PktHdrType;

namespace {

struct Imposed {
    Kind kind;
    std::vector<std::uint32_t> labels;
    Mpls::TtlMode mode = Mpls::TtlMode::pipe;
    std::optional<std::uint8_t> tc = {};
    std::optional<std::uint8_t> pushedTc = {};
};

/// In pipe mode with TTL 9.
DecidedRewrite rewriteOf(const Imposed& imposed) {
    Bytes packed;
    for (const std::uint32_t label : imposed.labels) {
        for (const unsigned shift : {16U, 8U, 0U}) {
            packed.push_back(static_cast<std::uint8_t>(label >> shift));
        }
    }
    Lumo::UnboundedMplsLabelOperation labels(packed);
    labels.ttl = 9;
    labels.tc = imposed.tc;
    labels.pushedTc = imposed.pushedTc;
    return imposing(imposed.kind, labels, imposed.mode);
}

DecidedRewrite popping(PktHdrType exposed, bool isUniform, bool exposesTc = false) {
    DecidedRewrite rewrite;
    rewrite.kind = Kind::pop;
    rewrite.grows = -4;
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

constexpr auto pipe = Mpls::TtlMode::pipe;
constexpr auto uniform = Mpls::TtlMode::uniform;
constexpr std::optional<std::uint8_t> keep;
const Bytes beneath = filled(12, 7);

Bytes packetOf(const std::vector<Entry>& entries) {
    return join({stack(entries), beneath});
}

} // namespace

TEST(LabelRewriteTest, LabelsAreSwappedAndPushed) {
    const struct {
        const char* what;
        Imposed imposed;
        std::vector<Entry> in;
        std::vector<Entry> out;
    } cases[]{
        {"swap", {Kind::swap, {300}}, {{100, 5, 64}}, {{300, 5, 63}}},
        {"swap above a label",
         {Kind::swap, {300}},
         {{100, 5, 64}, {200, 1, 8}},
         {{300, 5, 63}, {200, 1, 8}}},
        {"swap with a class", {Kind::swap, {300}, pipe, 2}, {{100, 5, 64}}, {{300, 2, 63}}},
        {"swap for three, pipe",
         {Kind::swap, {301, 302, 303}},
         {{100, 5, 64}},
         {{301, 5, 9}, {302, 5, 9}, {303, 5, 63}}},
        {"swap for two, uniform",
         {Kind::swap, {301, 302}, uniform},
         {{100, 5, 2}},
         {{301, 5, 1}, {302, 5, 1}}},
        {"swap for two, a class above",
         {Kind::swap, {301, 302}, pipe, keep, 6},
         {{100, 5, 64}},
         {{301, 6, 9}, {302, 5, 63}}},
        {"swap for two, two classes",
         {Kind::swap, {301, 302}, pipe, 0, 7},
         {{100, 5, 64}},
         {{301, 7, 9}, {302, 0, 63}}},
        {"push, pipe", {Kind::push, {301}}, {{100, 5, 64}}, {{301, 5, 9}, {100, 5, 63}}},
        {"push two, uniform",
         {Kind::push, {301, 302}, uniform},
         {{100, 5, 64}},
         {{301, 5, 63}, {302, 5, 63}, {100, 5, 63}}},
        {"push with a class",
         {Kind::push, {301}, pipe, 1},
         {{100, 5, 64}},
         {{301, 1, 9}, {100, 5, 63}}},
        {"push above a label",
         {Kind::push, {301}},
         {{100, 5, 64}, {200, 1, 8}},
         {{301, 5, 9}, {100, 5, 63}, {200, 1, 8}}},
        {"push six",
         {Kind::push, {31, 32, 33, 34, 35, 36}},
         {{100, 0, 64}},
         {{31, 0, 9}, {32, 0, 9}, {33, 0, 9}, {34, 0, 9}, {35, 0, 9}, {36, 0, 9}, {100, 0, 63}}},
    };
    for (const auto& given : cases) {
        const Rewritten made = rewritten(rewriteOf(given.imposed), packetOf(given.in));
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
    const auto growth = [](const Imposed& imposed) { return int{rewriteOf(imposed).grows}; };
    EXPECT_EQ(growth({Kind::swap, {1}}), 0);
    EXPECT_EQ(growth({Kind::swap, {1, 2, 3}}), 8);
    EXPECT_EQ(growth({Kind::push, {1, 2, 3}}), 12);
}

} // namespace LabelRewriteTest
