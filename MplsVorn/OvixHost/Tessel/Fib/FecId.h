#pragma once

#include <compare>
#include <cstdint>

#include "Lumo/IntfId.h"

namespace Tessel::Fib {

/// Names a forwarding equivalence class (FEC) of the unicast forwarding table; 0 names none.
class FecId {
  public:
    /// The highest id that an interface id can carry: an interface id has 56 bits beside its kind.
    static constexpr std::uint64_t maxOfInterface = (std::uint64_t{1} << 56U) - 1;

    constexpr FecId() noexcept = default;
    constexpr explicit FecId(std::uint64_t value) noexcept : value_(value) {}

    constexpr std::uint64_t value() const noexcept { return value_; }
    constexpr explicit operator bool() const noexcept { return value_ != 0; }

    /// The interface id that means the FEC; none for no FEC and for an id beyond
    /// `maxOfInterface`.
    static constexpr Lumo::IntfId fecIdToHierarchicalIntfId(FecId fec) noexcept {
        return fec && fec.value_ <= maxOfInterface
                   ? Lumo::IntfId::ofKind(Lumo::IntfId::Kind::hierarchical, fec.value_)
                   : Lumo::IntfId();
    }
    static constexpr bool isHierarchicalIntfId(Lumo::IntfId intf) noexcept {
        return intf.kind() == Lumo::IntfId::Kind::hierarchical;
    }

    friend constexpr auto operator<=>(FecId, FecId) noexcept = default;

  private:
    std::uint64_t value_ = 0;
};

} // namespace Tessel::Fib
