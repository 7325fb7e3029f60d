#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <string_view>

#include "Tessel/BoundedString.h"

namespace L3 {

/// The name of a VRF; empty means none named.
using VrfName = Tessel::BoundedString<100>;

inline constexpr std::string_view defaultVrf = "default";

} // namespace L3

namespace Lumo {

/// Identifies an interface: a 64-bit id of which the top byte says what kind it is. The id made
/// from the empty name is 0 and means no interface.
///
///     63    56 55                                             0
///     +-------+-----------------------------------------------+
///     | kind  | Ethernet: hash of the name  CPU/VLAN/...: id  |
///     +-------+-----------------------------------------------+
class IntfId {
  public:
    enum class Kind : std::uint8_t { none = 0, ethernet = 1, vlan = 2, cpu = 3, hierarchical = 4 };

    constexpr IntfId() noexcept = default;

    /// The Ethernet interface of that name. A name of more than 100 bytes throws RangeError.
    explicit IntfId(std::string_view name);

    static constexpr IntfId ofKind(Kind kind, std::uint64_t id) noexcept {
        IntfId made;
        made.value_ = (static_cast<std::uint64_t>(kind) << kindShift) | (id & idMask);
        return made;
    }
    /// The id as carried in a record or frame.
    static constexpr IntfId fromValue(std::uint64_t value) noexcept {
        IntfId made;
        made.value_ = value;
        return made;
    }

    constexpr std::uint64_t value() const noexcept { return value_; }
    constexpr Kind kind() const noexcept { return static_cast<Kind>(value_ >> kindShift); }
    constexpr std::uint64_t id() const noexcept { return value_ & idMask; }
    constexpr bool empty() const noexcept { return value_ == 0; }

    friend constexpr auto operator<=>(IntfId, IntfId) noexcept = default;

  private:
    static constexpr unsigned kindShift = 56;
    static constexpr std::uint64_t idMask = (std::uint64_t{1} << kindShift) - 1;

    std::uint64_t value_ = 0;
};

/// Interfaces toward the device's own CPU.
struct CpuIntfId {
    static constexpr IntfId cpuIdToIntfId(std::uint8_t cpu) noexcept {
        return IntfId::ofKind(IntfId::Kind::cpu, cpu);
    }
};

/// Interfaces of a VLAN (802.1Q), 1 to 4094.
struct VlanIntfId {
    static constexpr IntfId vlanIdToIntfId(std::uint16_t vlan) noexcept {
        return IntfId::ofKind(IntfId::Kind::vlan, vlan);
    }
    static constexpr bool isVlanIntfId(IntfId intf) noexcept {
        return intf.kind() == IntfId::Kind::vlan;
    }
    static constexpr std::uint16_t vlanId(IntfId intf) noexcept {
        return static_cast<std::uint16_t>(intf.id());
    }
};

} // namespace Lumo

template <>
struct std::hash<Lumo::IntfId> {
    std::size_t operator()(Lumo::IntfId intf) const noexcept { return intf.value(); }
};
