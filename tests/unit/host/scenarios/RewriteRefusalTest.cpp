// What a rewrite cannot be applied to stays as it was.

#include <gtest/gtest.h>

#include "RewriteTesting.h"

namespace RewriteRefusalTest {

using namespace Ovix;
using namespace TestSupport;
using namespace TestSupport::Raw;
using Mpls::PayloadType;

namespace {

constexpr Mpls::TtlMode uniformMode = Mpls::TtlMode::uniform;
constexpr const char* cutShort = "Label stack cut short";
constexpr const char* contradicts = "Payload is not of the label's payload type";
constexpr const char* doesNotFit = "Label stack does not fit the packet";

struct Refusal {
    const char* what;
    Bytes in;
    Ptr<RewriteInfo> rewrite;
    const char* reason;
    PktHdrType first = PktHdrType::mpls;
};

void check(const std::vector<Refusal>& rows) {
    for (const Refusal& row : rows) {
        Rewritten packet(row.in, row.first);
        EXPECT_EQ(packet.apply({row.rewrite}), row.reason) << row.what << " " << row.in.size();
        EXPECT_EQ(packet.bytes(), row.in) << row.what << " " << row.in.size();
        EXPECT_EQ(packet.context().outerType(), row.first) << row.what;
        EXPECT_FALSE(packet.context().ttlDecremented()) << row.what << " " << row.in.size();
        EXPECT_TRUE(packet.surroundingsIntact()) << row.what;
    }
}

const Bytes ip4 = ipv4({.ttl = 9}, {});
const Bytes ip6 = ipv6({.hopLimit = 9}, {});

} // namespace

TEST(RewriteRefusal, OfAStackThatDoesNotFitOrIsEmpty) {
    const Bytes largest = join({stack({{1}}), filled(65531 - Rewritten::before, 0)});
    check({
        {"swap in a large packet", largest, swapTo(std::vector<std::uint32_t>(33, 300)),
         doesNotFit},
        {"push in a large packet", largest, push(std::vector<std::uint32_t>(33, 300)), doesNotFit},
        {"swap", stack({{1}}), swapTo(std::vector<std::uint32_t>{}), doesNotFit},
        {"push", stack({{1}}), push(std::vector<std::uint32_t>{}), doesNotFit},
    });
}

TEST(RewriteRefusal, OfAPayloadThatIsNotWhatTheLabelSays) {
    check({
        {"IPv4 under IPv6", join({stack({{1}}), ip6}), pop(uniformMode, PayloadType::ipv4),
         contradicts},
        {"IPv6 under IPv4", join({stack({{1}}), ip4}), pop(uniformMode, PayloadType::ipv6),
         contradicts},
        {"neither", join({stack({{1}}), filled(60, 0x50)}), pop(), contradicts},
        {"no payload type, not IP", join({stack({{1}}), filled(60, 0)}),
         pop(uniformMode, PayloadType::none), contradicts},
        {"undefined", join({stack({{1}}), ip4}), pop(uniformMode, PayloadType::undefined),
         contradicts},
    });
}

TEST(RewriteRefusal, OfAPacketThatStartsWithSomethingElse) {
    const Bytes frame = join({eth(ethIpv4), ip4});
    check({
        {"swap of an IP packet", ip4, swapTo({{300}}), cutShort, PktHdrType::ipv4},
        {"pop of an IP packet", ip4, pop(), cutShort, PktHdrType::ipv4},
        {"age of a frame", frame, age(), contradicts, PktHdrType::eth},
        {"push on a frame", frame, push({{300}}), contradicts, PktHdrType::eth},
    });
}

TEST(RewriteRefusal, OfEveryLengthThatIsTooShort) {
    std::vector<Refusal> rows;
    for (std::size_t size = 0; size < 4; ++size) {
        for (const auto& rewrite : {swapTo({{300}}), pop(), push({{300}}), age()}) {
            rows.push_back({"entry", filled(size, 0xff), rewrite, cutShort});
        }
        rows.push_back(
            {"entry beneath", join({entry({100}, false), filled(size, 0xff)}), pop(), cutShort});
    }
    for (std::size_t size = 0; size < 20; ++size) {
        for (const PayloadType payload : {PayloadType::ipv4, PayloadType::automatic}) {
            rows.push_back({"IPv4", join({stack({{1}}), filled(size, 0x45)}),
                            pop(uniformMode, payload), contradicts});
        }
        rows.push_back({"IPv4 to age", filled(size, 0x45), age(), contradicts, PktHdrType::ipv4});
    }
    for (std::size_t size = 0; size < 40; ++size) {
        for (const PayloadType payload : {PayloadType::ipv6, PayloadType::automatic}) {
            rows.push_back({"IPv6", join({stack({{1}}), filled(size, 0x60)}),
                            pop(uniformMode, payload), contradicts});
        }
        rows.push_back(
            {"IPv6 to push on", filled(size, 0x60), push({{300}}), contradicts, PktHdrType::ipv6});
    }
    check(rows);
}

} // namespace RewriteRefusalTest
