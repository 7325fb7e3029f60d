#pragma once

#include <cstdint>
#include <span>

#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/MplsLabelOperation.h"
#include "Lumo/VrfName.h"
#include "Mpls/Types.h"
#include "Tessel/BoundedString.h"

namespace Ovix {

/// One resolved via. A value: field by field comparable, and valid exactly when some field differs
/// from a default via's.
struct OvixMplsVia {
    static constexpr std::uint32_t trafficClassUnset = 15;

    std::uint32_t labelAction = 0;                  ///< Lumo::MplsLabelAction
    std::uint32_t trafficClass = trafficClassUnset; ///< 0..7 to write on imposed labels
    bool controlWord = false;      ///< a pseudowire's payload follows a control word (RFC 4385)
    bool reserved = false;         ///< part of the record, and not used
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
