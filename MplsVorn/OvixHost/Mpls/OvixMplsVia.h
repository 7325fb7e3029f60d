#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/MplsLabelOperation.h"
#include "Mpls/Types.h"
#include "Tessel/BoundedString.h"

namespace Ovix {

/// The traffic classes of a via record, 0 to 7 each:
///
///      31             9         8       7         4 3         0
///     +----------------+---------+-----------+-----------+
///     |        0       | uniform | pushed+8  |    tc     |
///     +----------------+---------+-----------+-----------+
///
/// `tc` of 15 and `pushed` of 0 are unset.
class TrafficClassField {
  public:
    static constexpr std::uint32_t unset = 15;

    constexpr explicit TrafficClassField(std::uint32_t value) noexcept : value_(value) {}
    static constexpr TrafficClassField
    of(std::optional<std::uint8_t> tc, std::optional<std::uint8_t> pushed, bool uniform) noexcept {
        return TrafficClassField((uniform ? uniformFlag : 0U) | (pushed ? *pushed + 8U : 0U) << 4U |
                                 (tc ? *tc : unset));
    }
    static constexpr bool isLegal(std::uint32_t value) noexcept {
        const std::uint32_t tc = value & 15U;
        const std::uint32_t pushed = value >> 4U & 15U;
        return value < 2 * uniformFlag && (tc < 8 || tc == unset) && (pushed == 0 || pushed >= 8);
    }

    constexpr std::uint32_t value() const noexcept { return value_; }
    /// Of the labels written.
    constexpr std::optional<std::uint8_t> tc() const noexcept { return classIn(value_ & 15U); }
    /// Of the labels above a swapped one.
    constexpr std::optional<std::uint8_t> pushedTc() const noexcept {
        return classIn((value_ >> 4U & 15U) ^ 8U);
    }
    /// A pop writes the label's class into what it exposes.
    constexpr bool uniform() const noexcept { return (value_ & uniformFlag) != 0; }

  private:
    static constexpr std::uint32_t uniformFlag = 0x100;

    static constexpr std::optional<std::uint8_t> classIn(std::uint32_t bits) noexcept {
        return bits < 8 ? std::optional(static_cast<std::uint8_t>(bits)) : std::nullopt;
    }

    std::uint32_t value_;
};

/// One resolved via. A value: field by field comparable, and valid exactly when some field differs
/// from a default via's.
struct OvixMplsVia {
    std::uint32_t labelAction = 0;                         ///< Lumo::MplsLabelAction
    std::uint32_t trafficClass = TrafficClassField::unset; ///< TrafficClassField
    bool controlWord = false;      ///< a pseudowire's payload follows a control word (RFC 4385)
    bool entropy = false;          ///< a push adds an entropy label (RFC 6790)
    std::uint32_t payloadType = 0; ///< Mpls::PayloadType
    std::uint32_t ttlMode = 0;     ///< Mpls::TtlMode
    /// The labels of the operation, three bytes each, outermost first; at most 33.
    Tessel::BoundedString<100> labels;
    std::uint16_t pushTtl = 0;     ///< TTL of pushed labels in pipe mode; 0: 255
    Lumo::IntfId intfId;           ///< egress interface
    Lumo::IpGenAddr nexthop;       ///< next-hop address
    L3::VrfName vrfName;           ///< VRF in which the payload is routed next
    std::uint32_t fecIdHigh = 0;   ///< the upper half of the 64-bit FEC id
    std::uint32_t fecIdLow = 0;    ///< the lower half
    std::uint32_t nexthopMtu = 0;  ///< 0: the interface's
    std::uint16_t nexthopVlan = 0; ///< 802.1Q VLAN id to send with; 0: as the interface does

    bool isEq(const OvixMplsVia& other) const noexcept;
    /// Every via that does something has an action, so the field-by-field test is seldom needed.
    explicit operator bool() const noexcept { return labelAction != 0 || !isEq(OvixMplsVia()); }

    Lumo::MplsLabelAction action() const noexcept {
        return static_cast<Lumo::MplsLabelAction>(labelAction);
    }
    Mpls::PayloadType payload() const noexcept {
        return static_cast<Mpls::PayloadType>(payloadType);
    }
    Mpls::TtlMode ttl() const noexcept { return static_cast<Mpls::TtlMode>(ttlMode); }
    std::uint64_t fecId() const noexcept { return (std::uint64_t{fecIdHigh} << 32U) | fecIdLow; }

    /// The labels to impose or swap in; a view that lives no longer than this via.
    Lumo::UnboundedMplsLabelOperation labelOperation() const noexcept;

    /// Stores labels (`packed`: three bytes each, outermost first). False, and no labels, when
    /// there are more than the record has room for.
    bool labelsIs(std::span<const std::uint8_t> packed);
};

} // namespace Ovix
