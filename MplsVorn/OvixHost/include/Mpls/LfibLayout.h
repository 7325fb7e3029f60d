#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "Mpls/LfibRecords.h"

namespace Mpls::LfibLayout {

// One LFIB in one stretch of memory, plain or shared. Everything refers to everything else by
// offset, so the stretch may stand at any address.
//
//     0                 +--------------------------------------------+
//                       | Header                                     |
//     indexOffset       +--------------------------------------------+
//                       | one via-set key (8 bytes) per label value, |
//                       | 0: no route            (2^20 x 8 = 8 MiB)  |
//     heapOffset        +--------------------------------------------+
//                       | records in units of 8 bytes, in use up to  |
//                       | heapUnits; each starts with a RecordHeader |
//                       +--------------------------------------------+
//
// A via-set key is where its record stands: the unit in its lower half and, in its upper half, a
// serial number, so that a key kept too long does not name the record that came after. A via is
// named by its unit. Pages never touched cost no memory.
//
//     via set       RecordHeader | type 1 | origin 1 | flags 1 | ownsVias 1 | viaKeys 2 | members 2
//                   | LfibViaKey x viaKeys | LfibWeightedVia x members
//     IP via        RecordHeader | PackedVia
//     IP lookup via RecordHeader | payload type 1 | length 1 | VRF name
//     multicast     RecordHeader | LfibMulticastIpLookupVia

inline constexpr std::uint64_t magic = 0x314249464c584f; // "OXLFIB1" as it stands in memory
inline constexpr std::uint32_t version = 1;
inline constexpr std::size_t labels = 1U << 20U;
inline constexpr std::size_t unit = 8;

struct Header {
    std::uint64_t magic;
    std::uint32_t version;
    std::uint32_t heapUnits; ///< in use, from heapOffset; unit 0 is never used
    std::uint64_t regionBytes;
    std::array<char, 32> typeName;
    std::uint64_t routes; ///< labels that have a route
};
static_assert(offsetof(Header, version) == 8 && offsetof(Header, heapUnits) == 12 &&
              offsetof(Header, regionBytes) == 16 && offsetof(Header, typeName) == 24 &&
              offsetof(Header, routes) == 56 && sizeof(Header) == 64);

inline constexpr std::size_t indexOffset = 4096;
inline constexpr std::size_t heapOffset = indexOffset + labels * sizeof(std::uint64_t);

enum class Kind : std::uint16_t {
    none = 0,
    free = 0x4652,
    viaSet = 0x5653,
    ipVia = 0x4956,
    ipLookupVia = 0x4c56,
    multicastVia = 0x4d56,
};

struct RecordHeader {
    Kind kind;
    std::uint16_t units; ///< of the whole record
    std::uint32_t serial;
};
static_assert(sizeof(RecordHeader) == unit);

struct ViaSetRecord {
    std::uint8_t type;
    std::uint8_t origin;
    std::uint8_t flags;
    std::uint8_t ownsVias; ///< 1: the members' vias go with the set
    std::uint16_t viaKeys;
    std::uint16_t members;
};
static_assert(sizeof(ViaSetRecord) == unit);

constexpr std::uint32_t unitOf(LfibViaSetKey key) noexcept {
    return static_cast<std::uint32_t>(key.value);
}
constexpr std::uint32_t serialOf(LfibViaSetKey key) noexcept {
    return static_cast<std::uint32_t>(key.value >> 32U);
}
constexpr LfibViaSetKey viaSetKey(std::uint32_t unitIndex, std::uint32_t serial) noexcept {
    return {(std::uint64_t{serial} << 32U) | unitIndex};
}
/// Where an IP-lookup via's VRF name starts, behind its payload type and length.
inline constexpr std::size_t vrfNameOffset = 2;

} // namespace Mpls::LfibLayout
