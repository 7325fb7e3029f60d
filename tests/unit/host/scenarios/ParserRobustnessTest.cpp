// What arrives may be cut or damaged anywhere. The packets here end where their buffers end, so
// that a build with the address sanitizer sees any read beyond them.

#include <gtest/gtest.h>
#include <random>

#include "PacketTesting.h"

namespace ParserRobustnessTest {

using namespace Ovix;
using namespace TestSupport;
using namespace TestSupport::Raw;

namespace {

const std::vector<Bytes>& frames() {
    static const std::vector<Bytes> all = {
        join({eth(ethIpv4), ipv4({}, udp(1, 2, filled(4, 1)))}),
        join({eth(ethIpv4), ipv4({.options = filled(40, 1)}, udp())}),
        join({eth(ethMpls), stack({{100}}), ipv4({.protocol = protocolTcp}, filled(20, 1))}),
        join({eth(ethMpls), stack({{100}, {7}, {5000, 0, 0}, {2}}), ipv6({}, udp())}),
        join({eth(ethVlan), tag(5, ethMplsUpstream), stack({{100}, {200}}),
              ipv4({.fragment = 0x2000}, udp())}),
        join({eth(ethServiceVlan), tag(1, ethLegacyVlan), tag(2, ethVlan), tag(3, ethIpv6),
              ipv6({.nextHeader = 0}, join({{43, 0},
                                            filled(6, 0),
                                            {44, 1},
                                            filled(14, 0),
                                            {51, 0, 0, 1},
                                            filled(4, 0),
                                            {60, 1},
                                            filled(6, 0),
                                            {17, 0},
                                            filled(6, 0),
                                            udp()}))}),
        join({eth(ethMpls), stack({{100}}), eth(ethVlan), tag(9, ethIpv4), ipv4({}, udp())}),
        join({eth(ethMpls), stack(std::vector<Entry>(40, Entry{100})), filled(4, 0x45)}),
    };
    return all;
}

/// Parses to the end, touches everything a header offers and checks that it lies in the packet.
void examine(const Bytes& frame) {
    const auto context = contextOf(frame);
    ParsedPacket& parsed = context->parsedPkt();
    parsed.maybeDoFullParse();
    std::size_t end = 0;
    std::uint32_t sum = 0;
    for (std::int32_t i = 0; i < parsed.headers(); ++i) {
        const auto header = parsed.header(i);
        ASSERT_EQ(header->offset(), end);
        end += header->length();
        ASSERT_LE(end, frame.size());
        for (const std::uint8_t byte : header->bytes()) {
            sum += byte;
        }
        if (const MplsHeaderData* labels = mplsHeaderData(*header)) {
            ASSERT_EQ(labels->entries() * 4, header->length());
            for (const Lumo::MplsLabelEntry entry : *labels) {
                sum += entry.ttl();
            }
        }
    }
    sum += context->hash() + context->classificationInput();
    [[maybe_unused]] static volatile std::uint32_t kept;
    kept = sum;
}

} // namespace

TEST(ParserRobustness, AFrameCutAnywhereParsesAsFarAsItGoes) {
    for (const Bytes& whole : frames()) {
        const std::string all = headerNames(contextOf(whole)->parsedPkt());
        for (std::size_t length = 0; length <= whole.size(); ++length) {
            const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
            examine(cut);
            const std::string names = headerNames(contextOf(cut)->parsedPkt());
            EXPECT_EQ(all.compare(0, names.size(), names), 0) << names << " of " << all;
        }
    }
}

TEST(ParserRobustness, DamageNeverLeadsOutOfTheFrame) {
    std::mt19937 random(20261121);
    for (int i = 0; i < 100000; ++i) {
        Bytes frame = frames()[random() % frames().size()];
        const std::size_t changes = 1 + random() % 4;
        for (std::size_t change = 0; change < changes; ++change) {
            frame[random() % frame.size()] = static_cast<std::uint8_t>(random());
        }
        if (random() % 4 == 0) {
            frame.resize(random() % (frame.size() + 1));
        }
        examine(frame);
    }
}

TEST(ParserRobustness, NoiseBehindEveryKnownEtherTypeIsSafe) {
    std::mt19937 random(7);
    for (const std::uint16_t etherType : {ethIpv4, ethIpv6, ethMpls, ethVlan, ethServiceVlan}) {
        for (int i = 0; i < 4000; ++i) {
            Bytes noise(random() % 120);
            for (std::uint8_t& byte : noise) {
                byte = static_cast<std::uint8_t>(random());
            }
            examine(join({eth(etherType), noise}));
        }
    }
}

} // namespace ParserRobustnessTest
