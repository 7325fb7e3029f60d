#pragma once

#include <string>

#include "Lumo/IntfId.h"
#include "Tessel/Entity.h"
#include "Tessel/FlatMap.h"
#include "Vrf/VrfIdMap.h"

namespace Routing::Multicast {

/// A VRF's provider-multicast interface. Default: none.
struct MvpnVrfIntfId {
    Vrf::VrfIdMap::VrfId vrfId;
    Lumo::IntfId intfId;

    friend bool operator==(const MvpnVrfIntfId&, const MvpnVrfIntfId&) noexcept = default;
};

/// The provider-multicast interfaces of the multicast VPNs, by VRF.
class MvpnIntfStatus : public Tessel::Entity {
  public:
    static constexpr std::string_view entityTypeName = "Routing::Multicast::MvpnIntfStatus";
    static constexpr std::string_view mountPath = "routing/multicast/mvpn/intfStatus";
    enum Attr : Tessel::AttrId { vrfIntfIdAttr = 0 };

    MvpnIntfStatus() : Entity("mvpnIntfStatus") {}
    std::string_view typeName() const noexcept override { return entityTypeName; }

    /// The default entry when the VRF has none. An entry of another VRF in its place throws
    /// Tessel::CorruptionDetected.
    MvpnVrfIntfId vrfIntfId(Vrf::VrfIdMap::VrfId vrf) const {
        const MvpnVrfIntfId* entry = entries_.find(vrf.value);
        if (entry == nullptr) {
            return {};
        }
        if (entry->vrfId != vrf) {
            corrupt(vrf, *entry);
        }
        return *entry;
    }

    void vrfIntfIdIs(Vrf::VrfIdMap::VrfId vrf, Lumo::IntfId intf) { entryIs(vrf, {vrf, intf}); }
    /// Publishes an entry as given, whatever it says.
    void entryIs(Vrf::VrfIdMap::VrfId vrf, const MvpnVrfIntfId& entry);
    /// Nothing happens when the VRF has no entry.
    void vrfIntfIdDel(Vrf::VrfIdMap::VrfId vrf);

    /// The corruption hook: told of what a read ran into.
    void doCorruptionDetected(std::string_view message) const;
    std::uint64_t corruptionsDetected() const noexcept { return corruptions_; }
    const std::string& lastCorruption() const noexcept { return lastCorruption_; }

  private:
    [[noreturn]] void corrupt(Vrf::VrfIdMap::VrfId vrf, const MvpnVrfIntfId& found) const;

    Tessel::FlatMap<MvpnVrfIntfId> entries_;
    mutable std::uint64_t corruptions_ = 0;
    mutable std::string lastCorruption_;
};

} // namespace Routing::Multicast
