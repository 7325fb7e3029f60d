#include "Ovix/packet/FlowHash.h"

#include <bit>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <random>

#include "PacketTesting.h"

namespace FlowHashTest {

using namespace Ovix;
using namespace TestSupport;
using namespace TestSupport::Raw;

namespace {

constexpr std::uint32_t flows = 32000;

std::uint32_t hashOf(const Bytes& frame) {
    return contextOf(frame)->hash();
}

std::uint32_t stackHash(const std::vector<Entry>& entries) {
    const auto context = contextOf(stack(entries), PktHdrType::mpls);
    return MplsHasher().hash(*context->parsedPkt().header(0));
}

Bytes labelled(const std::vector<Entry>& entries, const Bytes& payload) {
    return join({eth(ethMpls), stack(entries), payload});
}

/// Pearson's statistic of the flows over so many ways, in standard deviations from its mean.
double skew(const std::vector<std::uint32_t>& hashes, std::uint32_t ways) {
    std::vector<double> load(ways);
    for (const std::uint32_t hash : hashes) {
        ++load[hash % ways];
    }
    const double expected = static_cast<double>(hashes.size()) / ways;
    double chiSquare = 0;
    for (const double count : load) {
        chiSquare += (count - expected) * (count - expected) / expected;
    }
    const double freedom = ways - 1.0;
    return (chiSquare - freedom) / std::sqrt(2 * freedom);
}

} // namespace

TEST(HashSpread, SequentialFlowsLoadEveryNumberOfWaysEvenly) {
    const struct {
        const char* what;
        std::function<std::uint32_t(std::uint32_t)> hash;
    } families[] = {
        {"labels", [](std::uint32_t i) { return stackHash({{16 + i}}); }},
        {"second labels",
         [](std::uint32_t i) {
             return stackHash({{100}, {16 + i}});
         }},
        {"entropy labels",
         [](std::uint32_t i) {
             return hashOf(labelled({{100}, {7}, {16 + i, 0, 0}}, {}));
         }},
        {"IPv4 destinations",
         [](std::uint32_t i) {
             return hashOf(labelled({{100}}, ipv4({.destination = 0x0a000000 + i}, udp())));
         }},
        {"IPv4 /24 networks",
         [](std::uint32_t i) {
             return hashOf(labelled({{100}}, ipv4({.source = i << 8U}, udp())));
         }},
        {"IPv4 pairs that add up to the same",
         [](std::uint32_t i) {
             return hashOf(join(
                 {eth(ethIpv4), ipv4({.source = 1000000 + i, .destination = 1000000 - i}, {})}));
         }},
        {"ports",
         [](std::uint32_t i) {
             return hashOf(labelled({{100}}, ipv4({}, udp(static_cast<std::uint16_t>(i), 443))));
         }},
        {"IPv6 flow labels",
         [](std::uint32_t i) {
             return hashOf(join({eth(ethIpv6), ipv6({.nextHeader = 59, .flowLabel = i}, {})}));
         }},
    };
    for (const auto& family : families) {
        std::vector<std::uint32_t> hashes;
        for (std::uint32_t i = 0; i < flows; ++i) {
            hashes.push_back(family.hash(i));
        }
        for (const std::uint32_t ways : {2U, 3U, 7U, 10U, 16U, 60U, 599U, 1000U, 1024U}) {
            EXPECT_LT(std::abs(skew(hashes, ways)), 5.5) << family.what << " over " << ways;
        }
    }
}

TEST(HashSpread, OneBitOfALabelChangesHalfTheHash) {
    double changed = 0;
    int pairs = 0;
    for (std::uint32_t label = 1000; label < 3000; ++label) {
        for (std::uint32_t bit = 0; bit < 20; ++bit) {
            changed += std::popcount(stackHash({{label}}) ^ stackHash({{label ^ (1U << bit)}}));
            ++pairs;
        }
    }
    EXPECT_NEAR(changed / pairs, 16.0, 0.25);
}

TEST(MplsHasher, LooksAtTheStackAlone) {
    const MplsHasher hasher;
    const auto context = contextOf(labelled({{100}, {200}}, ipv4({}, udp())));
    const std::uint32_t base = hasher.hash(*context->parsedPkt().header(1));
    EXPECT_EQ(base, stackHash({{100}, {200}}));
    EXPECT_EQ(base, stackHash({{100, 7, 1}, {200, 3, 2}})) << "TC and TTL";
    EXPECT_NE(base, stackHash({{200}, {100}}));
    EXPECT_NE(base, stackHash({{100}}));
}

TEST(MplsHasher, PassesOverSpecialPurposeLabels) {
    const std::uint32_t base = stackHash({{100}});
    for (std::uint32_t special = 0; special < 16; ++special) {
        EXPECT_EQ(stackHash({{100}, {special}}), base) << special;
    }
    EXPECT_EQ(stackHash({{15}, {240}, {100}}), base) << "an extended one";
    EXPECT_NE(stackHash({{240}, {100}}), base);
}

TEST(MplsHasher, StopsAtTheEntropyLabel) {
    const std::uint32_t base = stackHash({{100}, {7}, {5000}});
    EXPECT_EQ(stackHash({{100}, {7}, {5000}, {200}}), base);
    EXPECT_NE(stackHash({{100}, {7}, {5001}}), base);
    EXPECT_NE(stackHash({{101}, {7}, {5000}}), base);
    EXPECT_EQ(stackHash({{7}, {2}, {555}, {100}}), stackHash({{7}, {2}, {555}, {200}}))
        << "an explicit null between the indicator and its label";
}

TEST(MplsHasher, AHeaderWithoutAStackHashesAsAnEmptyOne) {
    const auto context = contextOf({1, 2}, PktHdrType::mpls);
    EXPECT_EQ(MplsHasher().hash(*context->parsedPkt().header(0)), FlowHasher().finish());
}

TEST(FlowHash, DependsOnTheFlowAndOnNothingElse) {
    const Bytes packet = ipv4({}, udp(1, 1));
    const std::uint32_t base = hashOf(labelled({{100}}, packet));
    EXPECT_EQ(hashOf(labelled({{100, 7, 9}}, packet)), base); // TC and TTL
    EXPECT_EQ(hashOf(labelled({{0}, {100}}, packet)), base);  // special-purpose
    EXPECT_NE(hashOf(labelled({{101}}, packet)), base);
    EXPECT_NE(hashOf(labelled({{100}}, ipv4({}, udp(1, 2)))), base);
    EXPECT_NE(hashOf(labelled({{100}}, ipv4({.source = 0x0a010002}, udp(1, 1)))), base);
    const std::vector<Entry> entropy{{100}, {7}, {5000, 0, 0}};
    EXPECT_EQ(hashOf(labelled(entropy, packet)), hashOf(labelled(entropy, ipv6({}, udp()))));
    EXPECT_NE(hashOf(labelled(entropy, packet)),
              hashOf(labelled({{100}, {7}, {5001, 0, 0}}, packet)));
}

TEST(FlowHash, OfWhatIsNotIpIsThatOfTheLabels) {
    // Behind a control word an Ethernet frame is out of step: what looks like a header is payload.
    const Bytes looksLikeIp = join({eth(ethIpv4), ipv4({}, udp())});
    const Bytes another = join({eth(ethIpv4), ipv4({.source = 77}, udp())});
    EXPECT_EQ(hashOf(labelled({{100}}, looksLikeIp)), hashOf(labelled({{100}}, another)));
}

TEST(FlowHash, DoesNotDependOnTheLinkHeader) {
    const Bytes routed = join({stack({{100}}), ipv4({}, udp())});
    const std::uint32_t base = hashOf(join({eth(ethMpls), routed}));
    EXPECT_EQ(hashOf(join({eth(ethVlan), tag(0xe005, ethMpls), routed})), base);
    Bytes otherMac = join({eth(ethMpls), routed});
    otherMac[11] = 0x77;
    EXPECT_EQ(hashOf(otherMac), base);
}

TEST(FlowHash, AllFragmentsOfAPacketTakeOnePath) {
    const auto fragment = [](std::uint16_t flags, const Bytes& payload) {
        return hashOf(labelled({{100}}, ipv4({.fragment = flags}, payload)));
    };
    EXPECT_EQ(fragment(0x2000, udp(1, 2)), fragment(0x2001, filled(8, 9)));
    EXPECT_EQ(fragment(0x2000, udp(1, 2)), fragment(0x0002, filled(8, 7)));
    EXPECT_NE(fragment(0x4000, udp(1, 2)), fragment(0x4000, udp(1, 3)));
}

TEST(FlowHash, KnowsTheProtocolsThatHavePorts) {
    for (const int protocol : {6, 17, 132}) {
        const Ipv4 header{.protocol = static_cast<std::uint8_t>(protocol)};
        EXPECT_NE(hashOf(labelled({{100}}, ipv4(header, udp(1, 2)))),
                  hashOf(labelled({{100}}, ipv4(header, udp(1, 3)))))
            << protocol;
    }
    const Ipv4 icmp{.protocol = 1};
    EXPECT_EQ(hashOf(labelled({{100}}, ipv4(icmp, udp(1, 2)))),
              hashOf(labelled({{100}}, ipv4(icmp, udp(1, 3)))));
}

TEST(FlowHash, IsTheSameWhereItIsMadeSooner) {
    std::mt19937 chance(1);
    const std::vector<TestSupport::Raw::Ipv4> headers{{},
                                          {.protocol = 6},
                                          {.protocol = 132},
                                          {.protocol = 1},
                                          {.fragment = 0x2000},
                                          {.fragment = 0x0010},
                                          {.options = filled(8, 1)}};
    std::size_t plain = 0;
    for (int turn = 0; turn < 2000; ++turn) {
        Bytes packet = ipv4(headers[chance() % headers.size()], udp());
        packet.resize(chance() % (packet.size() + 1));
        if (!packet.empty() && chance() % 2 == 0) {
            packet[chance() % packet.size()] = static_cast<std::uint8_t>(chance());
        }
        const auto label = static_cast<std::uint32_t>(16 + chance() % 1000);
        if (isPlainFlow(packet)) {
            ++plain;
            EXPECT_EQ(plainFlowHash(label, packet),
                      flowHash(PktHdrType::mpls, join({stack({{label}}), packet})));
        }
    }
    EXPECT_GT(plain, 200U);
}

} // namespace FlowHashTest
