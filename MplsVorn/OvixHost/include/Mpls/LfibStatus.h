#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "Mpls/LfibLayout.h"
#include "Mpls/LfibRecords.h"
#include "Ovix/OvixMplsVia.h"

namespace Mpls {

/// The reading side of one LFIB. Every read copies the record out, touching only what is in use,
/// and checks every index, offset and count before it follows it: what cannot be right throws
/// Tessel::CorruptionDetected, a list count beyond a list's capacity Tessel::RangeError. An absent
/// key reads as the default record.
class LfibStatus : public LfibViaSource {
  public:
    static constexpr std::string_view entityTypeName = "Mpls::LfibStatus";
    enum Attr : Tessel::AttrId { routeAttr = 0 };

    /// Reads the layout in `memory`, which must outlive the object. Throws CorruptionDetected,
    /// naming what it found, when that is not an LFIB of this version.
    LfibStatus(std::string name, std::span<const std::byte> memory);

    std::string_view typeName() const noexcept override { return entityTypeName; }

    LfibRoute route(RouteKey key) const noexcept {
        if (key.depth() != 1) {
            return {};
        }
        LfibRoute route{key, {}};
        std::memcpy(&route.viaSetKey,
                    memory_.data() + LfibLayout::indexOffset +
                        key.topLabel().value() * sizeof route.viaSetKey,
                    sizeof route.viaSetKey);
        return route.viaSetKey.value != 0 ? route : LfibRoute{};
    }
    LfibViaSet viaSet(LfibViaSetKey key) const;
    LfibIpLookupVia ipLookupVia(const LfibViaKey& key) const;
    LfibMulticastIpLookupVia multicastIpLookupVia(const LfibViaKey& key) const;
    /// Handles corruption itself: the hook is told and the via is invalid.
    Ovix::OvixMplsVia ipVia(std::uint32_t index) const override;

    std::uint64_t routes() const noexcept { return header().routes; }

    /// The corruption hook: told of what a read ran into.
    void doCorruptionDetected(std::string_view message) const;
    std::uint64_t corruptionsDetected() const noexcept { return corruptions_; }
    const std::string& lastCorruption() const noexcept { return lastCorruption_; }

  private:
    const LfibLayout::Header& header() const noexcept {
        return *reinterpret_cast<const LfibLayout::Header*>(memory_.data());
    }
    std::span<const std::byte> record(std::uint32_t unitIndex, LfibLayout::Kind kind,
                                      std::string_view what) const;
    [[noreturn]] void corrupt(std::string_view what, std::uint64_t at) const;

    std::span<const std::byte> memory_;
    mutable std::uint64_t corruptions_ = 0;
    mutable std::string lastCorruption_;
};

} // namespace Mpls
