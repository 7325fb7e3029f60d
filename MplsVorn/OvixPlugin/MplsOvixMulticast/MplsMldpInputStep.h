#pragma once

#include <string_view>

#include "Ovix/plugin/InputPipelineStep.h"
#include "Ovix/plugin/Ports.h"
#include "State/MvpnIntfStatus.h"
#include "Wire/MplsException.h"

namespace Ovix {

/// Takes in the traffic of multicast VPNs over mLDP: turns a special packet back into the MPLS
/// frame that it carries, tagged with the VLAN of its VRF's interface or, when that is no VLAN
/// interface, untagged. Every other frame passes unchanged.
///
/// What comes of a special packet:
/// - its header is cut short, or its VRF is not known: refused as it is ("Exceptional" / "MPLS
///   exception header cut short", "MvpnIntfStatus entry not found for vrf ID %s");
/// - it names another PMSI interface than its VRF has: refused, since letting it on would let one
///   VPN's traffic into another;
/// - the VRF has a VLAN interface: the tagged frame goes on through the agent, whose label tables
///   know it by its VLAN no less than by its labels;
/// - otherwise the untagged frame, which no longer shows its VRF, leaves by
///   the port of the VRF's interface; without such a port it is refused.
class MplsMldpInputStep : public InputPipelineStep {
  public:
    MplsMldpInputStep(const Ptr<const Routing::Multicast::MvpnIntfStatus>& mvpnIntfStatus,
                      const Ptr<Ports>& ports, const Ptr<PacketParser>& packetParser)
        : InputPipelineStep("MplsMldp"), mvpnIntfStatus_(mvpnIntfStatus), ports_(ports),
          packetParser_(packetParser) {}

    static Ptr<MplsMldpInputStep>
    MplsMldpInputStepIs(const Ptr<const Routing::Multicast::MvpnIntfStatus>& mvpnIntfStatus,
                        const Ptr<Ports>& ports, const Ptr<PacketParser>& packetParser);

    InputVerdict process(const Ptr<PacketContext>& context) override;
    bool ignores(std::uint16_t etherType) const noexcept override {
        return etherType != Wire::EtherType::vlan;
    }

    const Ptr<const Routing::Multicast::MvpnIntfStatus>& mvpnIntfStatus() const noexcept {
        return mvpnIntfStatus_;
    }
    const Ptr<Ports>& ports() const noexcept { return ports_; }
    const Ptr<PacketParser>& packetParser() const noexcept { return packetParser_; }

  private:
    InputVerdict takeIn(PacketContext& context, const Wire::SpecialPacketHeader& special) const;
    Routing::Multicast::MvpnVrfIntfId entryOf(Vrf::VrfIdMap::VrfId vrf) const;
    InputVerdict passOn(PacketContext& context, Lumo::IntfId intf, std::uint16_t vlan) const;

    Ptr<const Routing::Multicast::MvpnIntfStatus> mvpnIntfStatus_;
    Ptr<Ports> ports_;
    Ptr<PacketParser> packetParser_;
};

Ptr<MplsMldpInputStep>
mplsMldpInputStepFactory(const Ptr<const Routing::Multicast::MvpnIntfStatus>& mvpnIntfStatus,
                         const Ptr<Ports>& ports, const Ptr<PacketParser>& packetParser);

} // namespace Ovix
