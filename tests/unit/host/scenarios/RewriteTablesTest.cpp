// Bytes in, rewrites, bytes out.

#include <gtest/gtest.h>

#include "RewriteTesting.h"

namespace RewriteTablesTest {

using namespace Ovix;
using namespace TestSupport;
using namespace TestSupport::Raw;
using Mpls::PayloadType;
using Mpls::TtlMode;

namespace {

constexpr TtlMode uniformMode = TtlMode::uniform;
constexpr TtlMode pipeMode = TtlMode::pipe;

struct Row {
    const char* what;
    Bytes in;
    std::vector<Ptr<RewriteInfo>> rewrites;
    Bytes out;
    PktHdrType outer = PktHdrType::mpls;
    bool decremented = true;
    PktHdrType first = PktHdrType::mpls;
};

void check(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        Rewritten packet(row.in, row.first, true);
        EXPECT_EQ(packet.apply(row.rewrites), "") << row.what;
        EXPECT_EQ(packet.bytes(), row.out) << row.what;
        EXPECT_EQ(packet.context().outerType(), row.outer) << row.what;
        EXPECT_EQ(packet.context().ttlDecremented(), row.decremented) << row.what;
        EXPECT_TRUE(packet.surroundingsIntact()) << row.what;
    }
}

Bytes ip4(std::uint8_t ttl) {
    return ipv4({.ttl = ttl, .tos = 0xb8, .options = filled(4, 1)}, {});
}
Bytes ip6(std::uint8_t hopLimit) {
    return ipv6({.hopLimit = hopLimit, .trafficClass = 0x6f}, {});
}

} // namespace

TEST(RewriteTables, Swap) {
    check({
        {"TC, S and the rest stay",
         stack({{100, 5, 64}}),
         {swapTo({{300}})},
         stack({{300, 5, 63}})},
        {"above another label",
         stack({{100, 1, 64}, {200, 2, 9}}),
         {swapTo({{300}})},
         stack({{300, 1, 63}, {200, 2, 9}})},
        {"the largest label",
         stack({{16, 7, 255}}),
         {swapTo({{1048575}})},
         stack({{1048575, 7, 254}})},
        {"TC given", stack({{100, 5, 64}}), {swapTo({{300}, 2})}, stack({{300, 2, 63}})},
        {"TC 0 given",
         stack({{100, 5, 64}}),
         {swapTo({{300, 301}, 0})},
         stack({{300, 0, 63}, {301, 0, 63}})},
        {"uniform to three",
         stack({{100, 5, 64}}),
         {swapTo({{301, 302, 303}})},
         stack({{301, 5, 63}, {302, 5, 63}, {303, 5, 63}})},
        {"pipe to one carries the TTL on",
         stack({{100, 5, 64}}),
         {swapTo({{300}, {}, 9}, pipeMode)},
         stack({{300, 5, 63}})},
        {"pipe to three",
         stack({{100, 5, 64}}),
         {swapTo({{301, 302, 303}}, pipeMode)},
         stack({{301, 5, 255}, {302, 5, 255}, {303, 5, 63}})},
        {"pipe with a TTL given",
         stack({{100, 5, 64}}),
         {swapTo({{301, 302}, {}, 9}, pipeMode)},
         stack({{301, 5, 9}, {302, 5, 63}})},
        {"a TTL of 1", stack({{100, 0, 1}}), {swapTo({{300}})}, stack({{300, 0, 0}})},
    });
}

TEST(RewriteTables, Push) {
    check({
        {"on a label",
         stack({{100, 4, 64}}),
         {age(), push({{601, 602}})},
         stack({{601, 4, 63}, {602, 4, 63}, {100, 4, 63}})},
        {"on a label, pipe",
         stack({{100, 4, 64}}),
         {age(), push({{601, 602}}, pipeMode)},
         stack({{601, 4, 255}, {602, 4, 255}, {100, 4, 63}})},
        {"TC and TTL given",
         stack({{100, 4, 64}}),
         {age(), push({{601}, 1, 33}, pipeMode)},
         stack({{601, 1, 33}, {100, 4, 63}})},
        {"on IPv4",
         ip4(64),
         {age(), push({{601, 602}})},
         join({stack({{601, 5, 63}, {602, 5, 63}}), ip4(63)}),
         PktHdrType::mpls,
         true,
         PktHdrType::ipv4},
        {"on IPv6, pipe",
         ip6(64),
         {age(), push({{601}}, pipeMode)},
         join({stack({{601, 3, 255}}), ip6(63)}),
         PktHdrType::mpls,
         true,
         PktHdrType::ipv6},
        {"without the decrement",
         ip6(64),
         {push({{601}, 7})},
         join({stack({{601, 7, 64}}), ip6(64)}),
         PktHdrType::mpls,
         false,
         PktHdrType::ipv6},
    });
}

TEST(RewriteTables, Pop) {
    const Bytes frame = join({eth(ethIpv4), ip4(64)});
    check({
        {"to a label", stack({{100, 1, 64}, {200, 2, 90}}), {pop()}, stack({{200, 2, 63}})},
        {"to a label with a smaller TTL",
         stack({{100, 1, 64}, {200, 2, 3}}),
         {pop()},
         stack({{200, 2, 63}})},
        {"to a label, pipe",
         stack({{100, 1, 64}, {200, 2, 90}}),
         {pop(pipeMode)},
         stack({{200, 2, 90}}),
         PktHdrType::mpls,
         false},
        {"to a label, of any payload",
         stack({{100, 1, 64}, {200, 2, 90}}),
         {pop(uniformMode, PayloadType::ipv4)},
         stack({{200, 2, 63}})},
        {"to IPv4",
         join({stack({{100, 1, 64}}), ip4(90)}),
         {pop(uniformMode, PayloadType::ipv4)},
         ip4(63),
         PktHdrType::ipv4},
        {"to IPv4 with a smaller TTL",
         join({stack({{100, 1, 64}}), ip4(3)}),
         {pop()},
         ip4(63),
         PktHdrType::ipv4},
        {"to IPv6",
         join({stack({{100, 1, 64}}), ip6(90)}),
         {pop(uniformMode, PayloadType::ipv6)},
         ip6(63),
         PktHdrType::ipv6},
        {"to IPv6, found by its nibble",
         join({stack({{100, 1, 64}}), ip6(90)}),
         {pop()},
         ip6(63),
         PktHdrType::ipv6},
        {"no payload type, IPv4 there",
         join({stack({{100, 1, 64}}), ip4(90)}),
         {pop(uniformMode, PayloadType::none)},
         ip4(63),
         PktHdrType::ipv4},
        {"to IPv4, pipe",
         join({stack({{100, 1, 64}}), ip4(90)}),
         {pop(pipeMode)},
         ip4(90),
         PktHdrType::ipv4,
         false},
        {"to Ethernet, which has no TTL",
         join({stack({{100, 1, 64}}), frame}),
         {pop(uniformMode, PayloadType::ethernet)},
         frame,
         PktHdrType::eth,
         false},
    });
}

TEST(RewriteTables, OneDecrementHoweverManyRewrites) {
    check({
        {"null, swap",
         stack({{0, 0, 50}, {100, 0, 90}}),
         {pop(uniformMode, PayloadType::none), swapTo({{300}})},
         stack({{300, 0, 49}})},
        {"two nulls, swap",
         stack({{0, 0, 50}, {2, 0, 60}, {100, 0, 90}}),
         {pop(), pop(), swapTo({{300}})},
         stack({{300, 0, 49}})},
        {"pipe, swap",
         stack({{50, 0, 50}, {100, 0, 90}}),
         {pop(pipeMode), swapTo({{300}})},
         stack({{300, 0, 89}})},
        {"pipe, uniform, swap",
         stack({{50, 0, 50}, {51, 0, 60}, {100, 0, 90}}),
         {pop(pipeMode), pop(), swapTo({{300}})},
         stack({{300, 0, 59}})},
        {"null, push",
         stack({{0, 0, 50}, {100, 0, 90}}),
         {pop(), age(), push({{601}})},
         stack({{601, 0, 49}, {100, 0, 49}})},
        {"three pops to IPv4",
         join({stack({{50, 0, 50}, {51, 0, 60}, {52, 0, 70}}), ip4(80)}),
         {pop(), pop(), pop()},
         ip4(49),
         PktHdrType::ipv4},
        {"pop to IPv4, which decrements no more",
         join({stack({{50, 0, 50}}), ip4(80)}),
         {pop(), age()},
         ip4(49),
         PktHdrType::ipv4},
        {"pipe pop to IPv4, which decrements",
         join({stack({{50, 0, 50}}), ip4(80)}),
         {pop(pipeMode), age()},
         ip4(79),
         PktHdrType::ipv4},
        {"uniform pop above a pipe pop, which takes the decrement with it",
         join({stack({{50, 0, 50}, {51, 0, 60}}), ip4(80)}),
         {pop(), pop(pipeMode), age()},
         ip4(79),
         PktHdrType::ipv4},
        {"twice", stack({{100, 0, 90}}), {age(), age()}, stack({{100, 0, 89}})},
    });
}

TEST(RewriteTables, AnEntropyLabelCarriesTheTtlOfItsIndicatorOnly) {
    const struct {
        std::uint8_t indicator;
        std::uint8_t entropy;
        std::uint8_t expected;
    } ttls[] = {{50, 0, 49}, {50, 99, 49}, {2, 99, 1}, {0, 0, 89},
                {0, 99, 89}, {1, 0, 89},   {1, 99, 89}};
    for (const auto& ttl : ttls) {
        check({
            {"indicator, entropy label, swap",
             stack({{7, 0, ttl.indicator}, {5000, 0, ttl.entropy}, {100, 0, 90}}),
             {pop(uniformMode, PayloadType::none), pop(uniformMode, PayloadType::none),
              swapTo({{300}})},
             stack({{300, 0, ttl.expected}})},
        });
    }
    check({
        {"no TTL carried leaves IPv4 alone",
         join({stack({{7, 0, 0}, {5000, 0, 77}}), ip4(80)}),
         {pop(), pop()},
         ip4(80),
         PktHdrType::ipv4,
         false},
        {"the TTL carried reaches IPv4",
         join({stack({{7, 0, 50}, {5000, 0, 77}}), ip4(80)}),
         {pop(), pop()},
         ip4(49),
         PktHdrType::ipv4},
        {"beneath a label that was popped",
         stack({{50, 0, 50}, {7, 0, 9}, {5000, 0, 77}, {100, 0, 90}}),
         {pop(), pop(), pop(), swapTo({{300}})},
         stack({{300, 0, 49}})},
        {"beneath a label popped in pipe mode",
         stack({{50, 0, 50}, {7, 0, 0}, {5000, 0, 77}, {100, 0, 90}}),
         {pop(pipeMode), pop(), pop(), swapTo({{300}})},
         stack({{300, 0, 89}})},
    });
}

TEST(RewriteTables, AStackOfAnyDepthIsWrittenWhole) {
    for (const std::size_t depth : {1U, 2U, 7U, 8U, 9U, 32U, 33U}) {
        std::vector<std::uint32_t> labels;
        std::vector<Entry> expected;
        for (std::size_t i = 0; i < depth; ++i) {
            labels.push_back(static_cast<std::uint32_t>(1000 + i));
            expected.push_back({labels.back(), 3, 63});
        }
        Rewritten swapped(stack({{100, 3, 64}}));
        EXPECT_EQ(swapped.apply({swapTo(labels)}), "");
        EXPECT_EQ(swapped.bytes(), stack(expected)) << depth;
        expected.push_back({100, 3, 63});
        Rewritten pushed(stack({{100, 3, 64}}));
        EXPECT_EQ(pushed.apply({age(), push(labels)}), "");
        EXPECT_EQ(pushed.bytes(), stack(expected)) << depth;
    }
}

} // namespace RewriteTablesTest
