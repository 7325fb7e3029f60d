#pragma once

#include <compare>
#include <cstdint>

namespace Vrf {

/// VRFs by number.
struct VrfIdMap {
    /// The number under which frames and tables know a VRF.
    struct VrfId {
        std::uint32_t value = 0;
        friend auto operator<=>(VrfId, VrfId) noexcept = default;
    };
};

} // namespace Vrf
