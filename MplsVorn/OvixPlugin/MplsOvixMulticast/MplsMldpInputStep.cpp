#include "MplsOvixMulticast/MplsMldpInputStep.h"

#include <algorithm>

#include "MplsOvixMulticast/MulticastEvents.h"
#include "MplsOvixMulticast/SpecialPacket.h"
#include "TableRead.h"

namespace Ovix {

namespace {

using Routing::Multicast::MvpnIntfStatus;
using Routing::Multicast::MvpnVrfIntfId;

constexpr FrameEvent cutShort{FrameCategory::exceptional, "MPLS exception header cut short"};
constexpr FrameEvent entryNotFound{FrameCategory::exceptional,
                                   "MvpnIntfStatus entry not found for vrf ID %s"};

constexpr InputVerdict refused(const char* reason) noexcept {
    return {InputVerdict::Kind::refused, reason};
}

void putU16(std::span<std::uint8_t> to, std::size_t at, std::uint16_t value) noexcept {
    Lumo::NetU16(value).store(to.data() + at);
}

/// The MPLS frame that the packet carries: with one tag, or with none for VLAN 0. The tag's
/// priority is not carried over: it was that of the way to here.
Ptr<Lumo::Pkt> mplsFrame(const SpecialPacket& special, std::uint16_t vlan) {
    constexpr std::size_t macs = SpecialPacket::macsSize;
    const std::span<const std::uint8_t> mpls = special.mpls();
    const std::size_t header =
        vlan != 0 ? SpecialPacket::taggedHeaderSize : macs + SpecialPacket::etherTypeSize;
    Ptr<Lumo::Pkt> packet = Lumo::globalPktManager()->newPkt();
    const std::span<std::uint8_t> bytes = packet->newSharedHeadData(header + mpls.size());
    std::copy(special.macs().begin(), special.macs().end(), bytes.begin());
    if (vlan != 0) {
        putU16(bytes, macs, Lumo::EtherType::vlan);
        putU16(bytes, macs + 2, vlan);
    }
    putU16(bytes, header - SpecialPacket::etherTypeSize, Lumo::EtherType::mpls);
    std::copy(mpls.begin(), mpls.end(), bytes.subspan(header).begin());
    return packet;
}

} // namespace

Ptr<MplsMldpInputStep>
MplsMldpInputStep::MplsMldpInputStepIs(const Ptr<const MvpnIntfStatus>& mvpnIntfStatus,
                                       const Ptr<Ports>& ports,
                                       const Ptr<PacketParser>& packetParser) {
    return Tessel::make<MplsMldpInputStep>(mvpnIntfStatus, ports, packetParser);
}

Ptr<MplsMldpInputStep> mplsMldpInputStepFactory(const Ptr<const MvpnIntfStatus>& mvpnIntfStatus,
                                                const Ptr<Ports>& ports,
                                                const Ptr<PacketParser>& packetParser) {
    return MplsMldpInputStep::MplsMldpInputStepIs(mvpnIntfStatus, ports, packetParser);
}

InputVerdict MplsMldpInputStep::process(const Ptr<PacketContext>& context) {
    const SpecialPacket special(context->pkt()->data());
    if (!special.isTagged()) [[likely]] {
        traceMulticast(context->packetId(), "Not a 8021q packet.");
        return {};
    }
    if (!special.isSpecial()) {
        traceMulticast(context->packetId(), "Not special packet. Nothing to do for Vlan ",
                       special.vlanId());
        return {};
    }
    traceMulticast(context->packetId(), "Detected special MPLS_EXCEPTION header for Vlan ",
                   special.vlanId());
    return takeIn(*context, special);
}

InputVerdict MplsMldpInputStep::takeIn(PacketContext& context, const SpecialPacket& special) const {
    const std::uint64_t packetId = context.packetId();
    if (!special.isWhole()) {
        reportMulticast(context.namedCounters(), packetId, cutShort);
        return refused(cutShort.text().data());
    }
    const MvpnVrfIntfId entry = entryOf(special.vrfId());
    if (entry == MvpnVrfIntfId()) {
        reportMulticast(context.namedCounters(), packetId, entryNotFound, special.vrfId().value);
        return refused(entryNotFound.text().data());
    }
    const Lumo::IntfId pmsi = special.pmsi();
    const std::uint16_t vlan = Lumo::VlanIntfId::isVlanIntfId(entry.intfId)
                                   ? Lumo::VlanIntfId::vlanId(entry.intfId)
                                   : std::uint16_t{0};
    context.replacePacket(mplsFrame(special, vlan), PktCtxParse::reparse);
    context.initializeParsedPkt(packetParser_);
    if (pmsi != entry.intfId) {
        traceMulticast(packetId, "PMSI IntfId ", entry.intfId.value(), " mismatch with packet ",
                       pmsi.value());
        return refused("PMSI interface is not the VRF's");
    }
    return passOn(context, entry.intfId, vlan);
}

MvpnVrfIntfId MplsMldpInputStep::entryOf(Vrf::VrfIdMap::VrfId vrf) const {
    if (!mvpnIntfStatus_) {
        return {};
    }
    return readOrDefault(mvpnIntfStatus_, [&] { return mvpnIntfStatus_->vrfIntfId(vrf); });
}

InputVerdict MplsMldpInputStep::passOn(PacketContext& context, Lumo::IntfId intf,
                                       std::uint16_t vlan) const {
    const std::uint64_t packetId = context.packetId();
    if (vlan != 0) {
        traceMulticast(packetId, "Modified packet contains dot1q header with vlan ", vlan);
        traceMulticast(packetId, "Modified packet, continue Ovix processing");
        return {InputVerdict::Kind::modified, ""};
    }
    const Ptr<Port> port = ports_->port(intf);
    if (!port) {
        traceMulticast(packetId, "Port for ", intf.value(), " does not exist, Ignore");
        return refused("No port for the VRF's interface");
    }
    traceMulticast(packetId, "Sending modified packet out on ", port->shortName());
    return port->send(context.pkt()) ? InputVerdict{InputVerdict::Kind::sent, ""}
                                     : refused("Port of the VRF's interface does not send");
}

} // namespace Ovix
