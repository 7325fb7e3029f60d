#pragma once

#include <cstdint>

#include "Mpls/RouteKey.h"
#include "Ovix/routing/RewriteInfo.h"

namespace Ovix {

/// Counts one packet of `byteCount` bytes for a label route.
class LfibCounterActionInfo final : public CounterActionInfo,
                                    public Tessel::Slabbed<LfibCounterActionInfo> {
  public:
    static constexpr Tessel::TypeName infoTypeName{"LfibCounterActionInfo"};

    LfibCounterActionInfo(Mpls::RouteKey routeKey, std::uint32_t byteCount) noexcept
        : routeKey_(routeKey), byteCount_(byteCount) {}

    const Tessel::TypeName& typeName() const noexcept override { return infoTypeName; }
    Mpls::RouteKey routeKey() const noexcept { return routeKey_; }
    std::uint32_t byteCount() const noexcept { return byteCount_; }

  private:
    Mpls::RouteKey routeKey_;
    std::uint32_t byteCount_;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::LfibCounterActionInfo>;
