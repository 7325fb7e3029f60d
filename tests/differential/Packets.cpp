#include "Packets.h"

namespace Differential {

void put16(Bytes& to, std::uint32_t value) {
    to.push_back(static_cast<std::uint8_t>(value >> 8U));
    to.push_back(static_cast<std::uint8_t>(value));
}

void put32(Bytes& to, std::uint32_t value) {
    put16(to, value >> 16U);
    put16(to, value);
}

void putRandom(Bytes& to, Random& random, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        to.push_back(random.byte());
    }
}

namespace {

/// In a prefix that has a route, mostly.
Lumo::IpGenAddr destination(Random& random, const Network& network, Lumo::IpFamily family) {
    for (int tries = 0; tries < 8; ++tries) {
        const Lumo::IpGenPrefix& prefix = random.pick(network.prefixes);
        if (prefix.address().family() != family) {
            continue;
        }
        std::array<std::uint8_t, 16> bytes = prefix.address().bytes();
        const std::size_t size = prefix.address().bits() / 8U;
        for (std::size_t i = prefix.length() / 8U + (prefix.length() % 8U != 0 ? 1 : 0); i < size;
             ++i) {
            bytes[i] = random.pick<std::uint8_t>({0, 1, 2, 64, 128, 255, random.byte()});
        }
        return family == Lumo::IpFamily::ipv4 ? Lumo::IpGenAddr::ipv4(bytes.data())
                                              : Lumo::IpGenAddr::ipv6(bytes.data());
    }
    return Lumo::IpGenAddr(family);
}

std::uint32_t wordOf(const Lumo::IpGenAddr& address) {
    const auto& bytes = address.bytes();
    return std::uint32_t{bytes[0]} << 24U | std::uint32_t{bytes[1]} << 16U |
           std::uint32_t{bytes[2]} << 8U | bytes[3];
}

std::uint32_t ipv4Destination(Random& random, const Network& network) {
    const std::uint32_t of = random.below(100);
    if (of < 88) {
        return wordOf(destination(random, network, Lumo::IpFamily::ipv4));
    }
    if (of < 94) { // a neighbour, the router itself, a subnet's broadcast address
        return 0x0a000000U | random.below(network.ports.size()) << 8U |
               random.pick({1U, 2U, 3U, 9U, 0U, 255U});
    }
    return random.pick<std::uint32_t>(
        {0x7f000001, 0x7f0a0b0c, 0xe0000005, 0xe8010203, 0xffffffff, 0, 0xa9fe0101, 0xf0000001});
}

std::uint32_t ipv4Source(Random& random) {
    return random.chance(96) ? 0x0a640000U | random.below(0xffff)
                             : random.pick<std::uint32_t>(
                                   {0, 0x7f000001, 0xe0000001, 0xffffffff, 0x0a000001, 0x0a0001ff});
}

/// The ports of UDP and TCP, that of LSP ping (RFC 8029) now and then.
void putPorts(Bytes& to, Random& random) {
    put16(to, 1024 + random.below(60000));
    put16(to, random.chance(3) ? 3503 : random.pick({9U, 80U, 443U, 4000U}));
}

void putPayload(Bytes& to, Random& random, std::size_t payload) {
    const std::size_t end = to.size() + payload;
    if (payload >= 4) {
        putPorts(to, random);
    }
    if (payload >= 8) {
        put16(to, static_cast<std::uint32_t>(payload));
        put16(to, 0);
    }
    to.resize(end, random.byte());
}

void putIpv4Checksum(Bytes& bytes, std::size_t header, std::size_t size) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < size; i += 2) {
        sum += std::uint32_t{bytes[header + i]} << 8U | bytes[header + i + 1];
    }
    sum = (sum & 0xffffU) + (sum >> 16U);
    sum = ~((sum & 0xffffU) + (sum >> 16U));
    bytes[header + 10] = static_cast<std::uint8_t>(sum >> 8U);
    bytes[header + 11] = static_cast<std::uint8_t>(sum);
}

} // namespace

void putIpv4(Bytes& to, Random& random, const Network& network, std::size_t payload,
             std::uint8_t ttl) {
    const std::size_t start = to.size();
    const std::uint32_t words = random.chance(94) ? 5 : 6 + random.below(10);
    const std::size_t size = words * std::size_t{4};
    const std::uint32_t fragment =
        random.chance(85) ? 0U : random.pick({0x4000U, 0x2000U, 0x00b9U, 0x20b9U});
    const std::uint32_t protocol =
        random.chance(80) ? 17U : random.pick({6U, 1U, 47U, 2U, 132U, 255U});
    put32(to, 0x40000000U | words << 24U | std::uint32_t{random.byte()} << 16U |
                  static_cast<std::uint32_t>(size + payload));
    put32(to, random.below(65536) << 16U | fragment);
    put32(to, std::uint32_t{ttl} << 24U | protocol << 16U);
    put32(to, ipv4Source(random));
    put32(to, ipv4Destination(random, network));
    to.resize(start + size, 1); // options: no operation
    putIpv4Checksum(to, start, size);
    putPayload(to, random, payload);
}

void putIpv6(Bytes& to, Random& random, const Network& network, std::size_t payload,
             std::uint8_t hopLimit) {
    put32(to, 0x60000000U | std::uint32_t{random.byte()} << 20U | random.below(0x100000));
    const std::uint32_t protocol = random.chance(80) ? 17U : random.pick({6U, 58U, 0U, 44U, 59U});
    put32(to, static_cast<std::uint32_t>(payload) << 16U | protocol << 8U | hopLimit);
    const auto source = Lumo::IpGenAddr::fromText(
        random.chance(97) ? "2001:db8:77::1"
                          : random.pick({"::", "::1", "fe80::1", "ff02::1", "::ffff:10.1.1.1"}));
    put(to, source.bytes());
    const auto target = random.chance(92) ? destination(random, network, Lumo::IpFamily::ipv6)
                                          : Lumo::IpGenAddr::fromText(random.pick(
                                                {"::1", "fe80::2", "ff02::1", "::", "2001:db8:0::1",
                                                 "2001:db8:1::2", "::ffff:127.0.0.1"}));
    put(to, target.bytes());
    putPayload(to, random, payload);
}

void putCustomersFrame(Bytes& to, Random& random, const Network& network) {
    put(to, std::array<std::uint8_t, 6>{2, 0, 0, 7, 7, 1});
    put(to, std::array<std::uint8_t, 6>{2, 0, 0, 7, 7, random.byte()});
    if (random.chance(15)) {
        put32(to, 0x81000000U | random.below(4096));
    }
    if (random.chance(70)) {
        put16(to, 0x0800);
        putIpv4(to, random, network, random.below(60), 64);
        return;
    }
    put16(to, random.pick({0x86ddU, 0x0806U, 0x8847U, 0x88ccU}));
    putRandom(to, random, random.below(64));
}

} // namespace Differential
