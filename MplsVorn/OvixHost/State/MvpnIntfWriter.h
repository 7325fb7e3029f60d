#pragma once

#include <cstdint>

#include "State/MvpnIntfStatus.h"
#include "Tables/TableWriter.h"

namespace Routing::Multicast {

/// The writing side of the multicast VPNs' interfaces: makes the changes of a batch. Full tables
/// throw std::length_error.
class MvpnIntfWriter {
  public:
    MvpnIntfWriter(Tessel::TableWriter& tables, std::size_t table) noexcept
        : tables_(&tables), table_(table) {}

    void vrfIntfIdIs(Vrf::VrfIdMap::VrfId vrf, Lumo::IntfId intf) { entryIs(vrf, {vrf, intf}); }
    /// An entry as given in the VRF's place, unchecked.
    void entryIs(Vrf::VrfIdMap::VrfId vrf, const MvpnVrfIntfId& entry);
    /// Makes every entry be found again after damaged ones have been removed.
    void closeGaps();
    /// False when the VRF has no entry.
    bool vrfIntfIdDel(Vrf::VrfIdMap::VrfId vrf);

  private:
    /// The VRF's place, or the one that it would get.
    std::uint32_t placeOf(Vrf::VrfIdMap::VrfId vrf) const;
    Vrf::VrfIdMap::VrfId vrfAt(std::uint32_t place) const;

    Tessel::TableWriter* tables_;
    std::size_t table_;
};

} // namespace Routing::Multicast
