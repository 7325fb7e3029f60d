#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

/// Headers as plain bytes, put together by hand rather than by the code under test.
namespace TestSupport::Raw {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::uint16_t ethIpv4 = 0x0800;
inline constexpr std::uint16_t ethVlan = 0x8100;
inline constexpr std::uint16_t ethIpv6 = 0x86dd;
inline constexpr std::uint16_t ethMpls = 0x8847;
inline constexpr std::uint16_t ethMplsUpstream = 0x8848;
inline constexpr std::uint16_t ethServiceVlan = 0x88a8;
inline constexpr std::uint16_t ethLegacyVlan = 0x9100;

inline constexpr std::uint8_t protocolTcp = 6;
inline constexpr std::uint8_t protocolUdp = 17;

inline Bytes join(std::initializer_list<Bytes> parts) {
    Bytes whole;
    for (const Bytes& part : parts) {
        whole.insert(whole.end(), part.begin(), part.end());
    }
    return whole;
}

inline Bytes u16(std::uint32_t value) {
    return {static_cast<std::uint8_t>(value >> 8U), static_cast<std::uint8_t>(value)};
}

inline Bytes u32(std::uint32_t value) {
    return join({u16(value >> 16U), u16(value)});
}

inline Bytes filled(std::size_t count, std::uint8_t value) {
    return Bytes(count, value);
}

inline Bytes eth(std::uint16_t etherType) {
    return join({{2, 0, 0, 0, 0, 1, 2, 0, 0, 0, 1, 2}, u16(etherType)});
}

/// A VLAN tag behind its TPID: tag control information and the EtherType that follows.
inline Bytes tag(std::uint16_t tci, std::uint16_t etherType) {
    return join({u16(tci), u16(etherType)});
}

struct Entry {
    std::uint32_t label = 0;
    std::uint8_t tc = 0;
    std::uint8_t ttl = 64;
};

inline Bytes entry(const Entry& fields, bool bos) {
    return u32((fields.label << 12U) | (std::uint32_t{fields.tc} << 9U) | (bos ? 0x100U : 0U) |
               fields.ttl);
}

/// A whole label stack, the last entry marked as the bottom.
inline Bytes stack(const std::vector<Entry>& entries) {
    Bytes bytes;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        bytes = join({bytes, entry(entries[i], i + 1 == entries.size())});
    }
    return bytes;
}

/// The one's complement sum of RFC 1071 over the bytes, 0xffff when a checksum in them is right.
inline std::uint16_t onesSum(std::span<const std::uint8_t> bytes) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        sum += static_cast<std::uint32_t>(bytes[i]) << (i % 2 == 0 ? 8U : 0U);
        sum = (sum & 0xffffU) + (sum >> 16U);
    }
    return static_cast<std::uint16_t>(sum);
}

struct Ipv4 {
    std::uint32_t source = 0x0a010001;
    std::uint32_t destination = 0xc0000201;
    std::uint8_t protocol = protocolUdp;
    std::uint8_t ttl = 64;
    std::uint8_t tos = 0;
    std::uint16_t fragment = 0; ///< flags and offset
    std::uint16_t ident = 1;
    Bytes options{};
};

inline Bytes ipv4(const Ipv4& fields, const Bytes& payload) {
    const std::size_t length = 20 + fields.options.size();
    Bytes header = join({{static_cast<std::uint8_t>(0x40 | length / 4), fields.tos},
                         u16(static_cast<std::uint32_t>(length + payload.size())),
                         u16(fields.ident),
                         u16(fields.fragment),
                         {fields.ttl, fields.protocol, 0, 0},
                         u32(fields.source),
                         u32(fields.destination),
                         fields.options});
    const auto checksum = static_cast<std::uint16_t>(~onesSum(header));
    header[10] = static_cast<std::uint8_t>(checksum >> 8U);
    header[11] = static_cast<std::uint8_t>(checksum);
    return join({header, payload});
}

struct Ipv6 {
    std::uint8_t source = 1;      ///< the last byte of 2001:db8::
    std::uint8_t destination = 2; ///< likewise
    std::uint8_t nextHeader = protocolUdp;
    std::uint8_t hopLimit = 64;
    std::uint8_t trafficClass = 0;
    std::uint32_t flowLabel = 0;
};

inline Bytes ipv6Address(std::uint8_t last) {
    return {0x20, 1, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, last};
}

inline Bytes ipv6(const Ipv6& fields, const Bytes& payload) {
    return join({u32(0x60000000U | (std::uint32_t{fields.trafficClass} << 20U) | fields.flowLabel),
                 u16(static_cast<std::uint32_t>(payload.size())),
                 {fields.nextHeader, fields.hopLimit},
                 ipv6Address(fields.source),
                 ipv6Address(fields.destination),
                 payload});
}

inline Bytes udp(std::uint16_t sourcePort = 1024, std::uint16_t destinationPort = 9,
                 const Bytes& payload = {}) {
    return join({u16(sourcePort), u16(destinationPort),
                 u16(static_cast<std::uint32_t>(8 + payload.size())), u16(0), payload});
}

} // namespace TestSupport::Raw
