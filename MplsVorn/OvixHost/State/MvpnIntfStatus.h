#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

#include "Lumo/IntfId.h"
#include "Tables/Corruptions.h"
#include "Tables/TableReader.h"
#include "Tessel/Entity.h"

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

namespace Routing::Multicast {

/// A VRF's provider-multicast interface. Default: none.
struct MvpnVrfIntfId {
    Vrf::VrfIdMap::VrfId vrfId;
    Lumo::IntfId intfId;

    friend bool operator==(const MvpnVrfIntfId&, const MvpnVrfIntfId&) noexcept = default;
};

/// Where VRFs are in the table: at the place of their number or, when that is taken, at the next
/// free one, as in an open hash.
struct MvpnPlaces {
    static constexpr std::uint32_t home(Vrf::VrfIdMap::VrfId vrf) noexcept {
        return (vrf.value ^ (vrf.value >> 20U)) & Tessel::TableLayout::maxKey;
    }
    static constexpr std::uint32_t next(std::uint32_t place) noexcept {
        return (place + 1) & Tessel::TableLayout::maxKey;
    }
    /// How far a VRF is from its home.
    static constexpr std::uint32_t distance(std::uint32_t place,
                                            Vrf::VrfIdMap::VrfId vrf) noexcept {
        return (place - home(vrf)) & Tessel::TableLayout::maxKey;
    }
    /// VRFs that share a home are few.
    static constexpr std::uint32_t maxDistance = 1024;
};

/// The provider-multicast interfaces of the multicast VPNs, by VRF: the reading side.
class MvpnIntfStatus : public Tessel::Entity, public Tessel::CorruptionHook {
  public:
    static constexpr std::string_view entityTypeName = "Routing::Multicast::MvpnIntfStatus";
    static constexpr std::string_view mountPath = "routing/multicast/mvpn/intfStatus";
    /// Published under the place (MvpnPlaces) of what has changed.
    enum Attr : Tessel::AttrId { vrfIntfIdAttr = 0 };

    explicit MvpnIntfStatus(Ptr<const Tessel::TableReader> tables);
    std::string_view typeName() const noexcept override { return entityTypeName; }

    /// The default entry when the VRF has none. Damage, an entry in a place that is not its
    /// VRF's included, throws Tessel::CorruptionDetected.
    MvpnVrfIntfId vrfIntfId(Vrf::VrfIdMap::VrfId vrf) const;

    std::size_t vrfs() const noexcept { return tables_->entries(table_); }
    /// Visits the entries; throws as vrfIntfId does.
    template <typename Visitor>
    void forEachEntry(Visitor&& visitor) const {
        tables_->forEach(
            table_, [&](std::uint32_t place, Tessel::TableRef ref) { visitor(read(place, ref)); });
    }

  private:
    MvpnVrfIntfId read(std::uint32_t place, Tessel::TableRef ref) const;

    Ptr<const Tessel::TableReader> tables_;
    std::size_t table_;
};

} // namespace Routing::Multicast
