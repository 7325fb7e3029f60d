#pragma once

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

    /// The default entry when the VRF has none.
    MvpnVrfIntfId vrfIntfId(Vrf::VrfIdMap::VrfId vrf) const noexcept {
        const Lumo::IntfId* intf = intfs_.find(vrf.value);
        return intf != nullptr ? MvpnVrfIntfId{vrf, *intf} : MvpnVrfIntfId{};
    }
    void vrfIntfIdIs(Vrf::VrfIdMap::VrfId vrf, Lumo::IntfId intf) {
        intfs_[vrf.value] = intf;
        publish(vrfIntfIdAttr, vrf.value);
    }

  private:
    Tessel::FlatMap<Lumo::IntfId> intfs_;
};

} // namespace Routing::Multicast
