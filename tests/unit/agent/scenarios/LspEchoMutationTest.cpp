#include <random>

#include "EchoTesting.h"

namespace LspEchoMutationTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using namespace TestSupport::Raw;

namespace {

/// What is wrong with a reply by IPv4, which may be none.
std::string wrongWith(const Bytes& reply, const Bytes& request) {
    if (reply.empty()) {
        return "";
    }
    if (reply.size() < 60 || reply.size() > request.size() + 80) {
        return "size";
    }
    const std::size_t header = (reply[0] & 0x0fU) * std::size_t{4};
    if (onesSum(cut(reply, header)) != 0xffff || reply[2] * 256U + reply[3] != reply.size()) {
        return "IP header";
    }
    const Bytes withoutOptions = join({cut(reply, 20), from(reply, header, reply.size() - header)});
    if (transportSum(withoutOptions) != 0xffff) {
        return "UDP checksum";
    }
    const Bytes echo = from(withoutOptions, 28, withoutOptions.size() - 28);
    if (hex(from(echo, 8, 16)) != hex(from(request, 8, 16))) {
        return "what the sender put in";
    }
    static const std::vector<unsigned> known{1, 2, 3, 4, 5, 6, 8, 10, 11, 35};
    return std::find(known.begin(), known.end(), echo[6]) != known.end() ? "" : "return code";
}

/// A request with some of its bytes changed, some inserted and some left out.
Bytes mutated(const Bytes& bytes, std::mt19937& random) {
    Bytes changed = bytes;
    const std::size_t times = 1 + random() % 4;
    for (std::size_t i = 0; i < times && changed.size() > 40; ++i) {
        const auto at = static_cast<std::ptrdiff_t>(random() % changed.size());
        const auto value = static_cast<std::uint8_t>(random() % 3 == 0 ? random() % 24 : random());
        switch (random() % 4) {
        case 0:
            changed.insert(changed.begin() + at, value);
            break;
        case 1:
            changed.erase(changed.begin() + at);
            break;
        default:
            changed[static_cast<std::size_t>(at)] = value;
        }
    }
    return changed;
}

} // namespace

TEST(LspEchoMutation, EveryReplyIsWellFormed) {
    const Bytes mapping =
        tlv(20, join({{5, 220, 1, 0}, filled(10, 1), {0, 8}, tlv(1, filled(4, 0))}));
    const std::vector<Bytes> originals{
        message({}),
        message({.tlvs = join({fecStack({ldp4, ldp6, nilFec}), tlv(3, {2, 1, 1})})}),
        message({.replyMode = 3, .tlvs = join({tlv(99, {1}), fecStack({ldp4}), mapping})}),
        message({.tlvs = join({fecStack({tlv(34, {10, 9, 0, 0, 16, 0, 0, 0}),
                                         tlv(36, join({{4, 1, 0, 0}, filled(16, 0)}))}),
                               mappingOf("10.255.0.1", "10.255.0.1", {{100}}, 2)})}),
        message({.flags = 3, .tlvs = join({tlv(10, {1, 0, 0, 0}), fecStack({nilFec, ldp4})})}),
    };
    const std::vector<std::vector<Entry>> stacks{{{0}}, {{100}}, {{1}, {200}}, {{300}}};
    std::mt19937 random(1); // NOLINT(cert-msc51-cpp): the same each time
    std::array<unsigned, 36> replies{};
    for (unsigned i = 0; i < 40'000; ++i) {
        const Bytes request = mutated(originals[i % originals.size()], random);
        const Bytes reply = replyTo(labelled(stacks[random() % stacks.size()], echo4(request)));
        ASSERT_EQ(wrongWith(reply, request), "") << i << ": " << hex(request);
        ++replies.at(reply.empty() ? 0 : reply[(reply[0] & 0x0fU) * 4U + 14]);
    }
    for (const std::size_t code : {0U, 1U, 2U, 3U, 4U, 5U, 8U, 10U, 11U}) {
        EXPECT_GT(replies.at(code), 100U) << code;
    }
}

TEST(LspEchoMutation, ParsingStaysWithinTheFrame) {
    const Bytes frame = tagged({{1}, {0}}, echo6(message({})));
    std::mt19937 random(2); // NOLINT(cert-msc51-cpp): the same each time
    unsigned packets = 0;
    for (unsigned i = 0; i < 40'000; ++i) {
        const Bytes changed = mutated(frame, random);
        if (const auto packet = readLabelledPacket(changed)) {
            ++packets;
            ASSERT_LE(packet->labels.data() + packet->labels.size(), packet->ip.bytes.data());
            ASSERT_LE(packet->ip.bytes.data() + packet->ip.bytes.size(),
                      changed.data() + changed.size());
            if (isMplsEcho(packet->ip)) {
                lspEchoReply(*packet, 0, at, FakeEchoTables(), own);
            }
        }
    }
    EXPECT_GT(packets, 1000U);
}

} // namespace LspEchoMutationTest
