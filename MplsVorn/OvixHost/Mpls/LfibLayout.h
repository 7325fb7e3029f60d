#pragma once

#include <cstddef>
#include <cstdint>

#include "Mpls/LfibRecords.h"
#include "Mpls/TableDirectory.h"
#include "Tables/TableLayout.h"

namespace Mpls::LfibLayout {

// The records of an LFIB. A label's entry refers to its via set; the vias stand behind it in the
// same room as records of their own, each of which a member or the via key refers to by unit and
// check.
//
//     via set       RecordHeader | ViaSetWord | LfibViaKey x viaKeys | LfibWeightedVia x members
//                   of a route that waits also | WaitingWord
//     IP via        RecordHeader | PackedVia
//     IP lookup via RecordHeader | payload type 1 | length 1 | VRF name
//     multicast     RecordHeader | LfibMulticastIpLookupVia
//
// Lists and fields are packed; the last word of a record is filled up with zeros.

struct ViaSetWord {
    std::uint8_t type;
    std::uint8_t owner;
    std::uint8_t flags;
    std::uint8_t preference; ///< 0: as usual for the owner
    std::uint16_t viaKeys;
    std::uint16_t members;
};
static_assert(sizeof(ViaSetWord) == Tessel::TableLayout::unitBytes);

/// What a route that waits is for.
struct WaitingWord {
    explicit constexpr WaitingWord(std::uint64_t word) noexcept : word_(word) {}
    constexpr WaitingWord(Lumo::MplsLabel label, TableId table) noexcept
        : word_((std::uint64_t{static_cast<std::uint8_t>(table)} << 32U) | label.value()) {}

    constexpr std::uint64_t word() const noexcept { return word_; }
    constexpr Lumo::MplsLabel label() const noexcept {
        return Lumo::MplsLabel(static_cast<std::uint32_t>(word_) & Lumo::MplsLabel::max);
    }
    constexpr TableId table() const noexcept { return static_cast<TableId>(word_ >> 32U); }

  private:
    std::uint64_t word_;
};

constexpr std::size_t wordsFor(std::size_t bytes) noexcept {
    return (bytes + Tessel::TableLayout::unitBytes - 1) / Tessel::TableLayout::unitBytes;
}

/// The words of the largest via set, and of any via.
inline constexpr std::size_t maxViaSetWords = wordsFor(
    sizeof(ViaSetWord) + LfibViaSet::capacity * (sizeof(LfibViaKey) + sizeof(LfibWeightedVia)) +
    sizeof(WaitingWord));
inline constexpr std::size_t maxViaWords = 40;

/// Where an IP-lookup via's VRF name starts, behind its payload type and length.
inline constexpr std::size_t vrfNameOffset = 2;

} // namespace Mpls::LfibLayout
