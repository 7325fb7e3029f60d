#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>

#include "Lumo/NetInt.h"
#include "Tessel/Exceptions.h"

namespace Lumo {

/// A 20-bit label value (RFC 3032). A value that needs more bits throws RangeError.
class MplsLabel {
  public:
    static constexpr std::uint32_t max = 0xfffff;

    constexpr MplsLabel() noexcept = default;
    constexpr explicit MplsLabel(std::uint32_t value) : value_(value) {
        if (value > max) {
            throw Tessel::RangeError("Lumo::MplsLabel::value > 1048575 not allowed");
        }
    }

    constexpr std::uint32_t value() const noexcept { return value_; }

    /// IPv4 explicit null (0) or IPv6 explicit null (2), RFC 3032 section 2.1.
    constexpr bool isExplicitNull() const noexcept { return value_ == 0 || value_ == 2; }

    /// Reserved with a meaning of its own (RFC 7274), so that it does not identify a flow.
    constexpr bool isSpecialPurpose() const noexcept { return value_ <= 15; }

    /// The label in decimal, for traces.
    std::string prettyString() const { return std::to_string(value_); }

    friend constexpr auto operator<=>(MplsLabel, MplsLabel) noexcept = default;

  private:
    std::uint32_t value_ = 0;
};

/// Labels with a meaning of their own.
inline constexpr MplsLabel ipv4ExplicitNull{0};
inline constexpr MplsLabel routerAlert{1};
inline constexpr MplsLabel ipv6ExplicitNull{2};
inline constexpr MplsLabel implicitNull{3};
/// RFC 6790: the next entry is an entropy label.
inline constexpr MplsLabel entropyLabelIndicator{7};
/// RFC 5586: an associated channel follows the stack.
inline constexpr MplsLabel genericAssociatedChannel{13};
/// RFC 7274: the next entry is an extended special-purpose label.
inline constexpr MplsLabel extensionLabel{15};

/// One label stack entry as on the wire (RFC 3032 section 2.1, TC per RFC 5462):
///
///      0                   1                   2                   3
///      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |                Label                  | TC  |S|       TTL     |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
class MplsLabelEntry {
  public:
    static constexpr std::size_t size = 4;
    static constexpr std::size_t ttlAt = 3;

    constexpr MplsLabelEntry() noexcept = default;
    constexpr explicit MplsLabelEntry(NetU32 word) noexcept : word_(word) {}
    constexpr MplsLabelEntry(MplsLabel label, std::uint8_t tc, bool bos, std::uint8_t ttl) noexcept
        : word_((label.value() << 12U) | ((tc & 7U) << 9U) | (bos ? 0x100U : 0U) | ttl) {}

    static MplsLabelEntry load(const std::uint8_t* from) noexcept {
        return MplsLabelEntry(NetU32::load(from));
    }
    void store(std::uint8_t* to) const noexcept { word_.store(to); }

    constexpr NetU32 word() const noexcept { return word_; }
    constexpr MplsLabel label() const noexcept { return MplsLabel(word_.value() >> 12U); }
    constexpr std::uint8_t tc() const noexcept {
        return static_cast<std::uint8_t>((word_.value() >> 9U) & 7U);
    }
    /// The bottom-of-stack bit: set on the last entry of a stack.
    constexpr bool bos() const noexcept { return (word_.value() & 0x100U) != 0; }
    constexpr std::uint8_t ttl() const noexcept {
        return static_cast<std::uint8_t>(word_.value() & 0xffU);
    }

    constexpr MplsLabelEntry withTtl(std::uint8_t ttl) const noexcept {
        return MplsLabelEntry(NetU32((word_.value() & ~0xffU) | ttl));
    }

    friend constexpr bool operator==(MplsLabelEntry, MplsLabelEntry) noexcept = default;

  private:
    NetU32 word_;
};

static_assert(sizeof(MplsLabelEntry) == MplsLabelEntry::size);

/// The position of an entry in the label stack, 0 for the outermost; 13 means no position. A value
/// beyond that throws RangeError, whether constructed or reached by incrementing.
class MplsStackEntryIndex {
  public:
    static constexpr std::uint8_t min = 0;
    static constexpr std::uint8_t nullValue = 13;

    constexpr MplsStackEntryIndex() noexcept = default;
    constexpr explicit MplsStackEntryIndex(std::uint32_t value)
        : value_(static_cast<std::uint8_t>(value)) {
        if (value > nullValue) [[unlikely]] {
            outOfRange();
        }
    }

    constexpr std::uint8_t value() const noexcept { return value_; }
    constexpr MplsStackEntryIndex& operator++() {
        *this = MplsStackEntryIndex(value_ + 1U);
        return *this;
    }

    friend constexpr auto operator<=>(MplsStackEntryIndex, MplsStackEntryIndex) noexcept = default;

    [[noreturn]] static void outOfRange() {
        throw Tessel::RangeError(
            "Lumo::MplsStackEntryIndex::value < Lumo::MplsStackEntryIndex::min or > "
            "Lumo::MplsStackEntryIndex::nullValue not allowed");
    }

  private:
    std::uint8_t value_ = nullValue;
};

} // namespace Lumo
