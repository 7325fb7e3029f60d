#pragma once

#include <cassert>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "Lumo/MplsLabel.h"
#include "Tessel/Words.h"

namespace Lumo {

/// What a via does to the label it is chosen for.
enum class MplsLabelAction : std::uint8_t { none = 0, push = 1, pop = 2, swap = 3 };

/// The labels that a via imposes or swaps in, outermost first, in any number, and their traffic
/// class and TTL. A view: the labels belong to the via record.
class UnboundedMplsLabelOperation {
  public:
    static constexpr std::uint8_t defaultTtl = 255;

    UnboundedMplsLabelOperation() noexcept = default;

    /// `packed` holds three bytes per label, most significant first.
    explicit UnboundedMplsLabelOperation(std::span<const std::uint8_t> packed) noexcept
        : packed_(packed) {}

    std::size_t depth() const noexcept { return packed_.size() / packedLabelSize; }
    /// Throws RangeError for one of more than 20 bits, which its value shows.
    MplsLabel label(std::size_t index) const { return MplsLabel(value(index)); }
    std::uint32_t value(std::size_t index) const noexcept {
        assert(index < depth());
        const std::uint8_t* at = packed_.data() + index * packedLabelSize;
        return (std::uint32_t{at[0]} << 16U) | (std::uint32_t{at[1]} << 8U) | at[2];
    }
    std::span<const std::uint8_t> packed() const noexcept { return packed_; }

    /// The traffic class to write; unset: taken from what lies beneath (RFC 3270 section 2.6).
    std::optional<std::uint8_t> tc;
    /// That of the labels above a swapped one; unset: the swapped one's.
    std::optional<std::uint8_t> pushedTc;
    /// A pop writes the label's class into what it exposes.
    bool exposesTc = false;
    /// The TTL of pushed labels in pipe mode.
    std::uint8_t ttl = defaultTtl;
    /// The number of labels above an entropy label and its indicator, which a push adds; 0: none.
    std::uint8_t entropyBeneath = 0;
    /// Whether a push adds a flow label at the bottom (RFC 6391).
    bool flowLabel = false;

    static constexpr std::size_t packedLabelSize = 3;

  private:
    std::span<const std::uint8_t> packed_;
};

} // namespace Lumo

template <>
inline constexpr auto
    Tessel::words<Lumo::MplsLabelAction> = std::to_array<Tessel::Word<Lumo::MplsLabelAction>>({
        {"push", Lumo::MplsLabelAction::push},
        {"pop", Lumo::MplsLabelAction::pop},
        {"swap", Lumo::MplsLabelAction::swap},
    });
