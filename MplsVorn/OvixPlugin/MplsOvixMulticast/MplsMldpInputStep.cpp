#include "MplsOvixMulticast/MplsMldpInputStep.h"

#include "MplsOvixMulticast/EthernetFrame.h"
#include "MplsOvixMulticast/MulticastEvents.h"
#include "Tables/Corruptions.h"
#include "Wire/MplsException.h"

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

/// The VLAN of a tag that starts here; 0 when its TCI is cut short.
std::uint16_t vlanIdAt(Wire::Bytes tag) noexcept {
    return tag.size() >= sizeof(std::uint16_t)
               ? static_cast<std::uint16_t>(Lumo::NetU16::load(tag.data()).value() &
                                            Wire::Tag::vlanIdMask)
               : std::uint16_t{0};
}

/// The MPLS frame that the special packet carries: with a tag, or without one for VLAN 0. The
/// priority of the received tag is not carried over: it was that of the link the packet came by.
Ptr<Lumo::Pkt> mplsFrame(Wire::Bytes special, std::uint16_t vlan) {
    constexpr std::size_t mpls =
        Wire::SpecialPacketHeader::offset + Wire::SpecialPacketHeader::size;
    return ethernetFrame(special.first(Wire::Ethernet::macsSize),
                         vlan != 0 ? std::optional(vlan) : std::nullopt, Wire::EtherType::mpls,
                         special.subspan(mpls));
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
    const Wire::Bytes frame = context->pkt()->data();
    const Wire::Ethernet header(frame);
    if (!header || header.etherType() != Wire::EtherType::vlan) [[likely]] {
        traceMulticast(context->packetId(), "Not a 8021q packet.");
        return {};
    }
    const Wire::Bytes behind = frame.subspan(Wire::Ethernet::size);
    Wire::TagWalk tags(header.etherType(), behind);
    Wire::Tag tag;
    if (!tags.next(tag) || tags.etherType() != Wire::EtherType::mplsException) {
        traceMulticast(context->packetId(), "Not special packet. Nothing to do for Vlan ",
                       vlanIdAt(behind));
        return {};
    }
    traceMulticast(context->packetId(), "Detected special MPLS_EXCEPTION header for Vlan ",
                   tag.vlanId());
    return takeIn(*context, Wire::SpecialPacketHeader(tags.rest()));
}

InputVerdict MplsMldpInputStep::takeIn(PacketContext& context,
                                       const Wire::SpecialPacketHeader& special) const {
    const std::uint64_t packetId = context.packetId();
    if (!special) {
        reportMulticast(context.namedCounters(), packetId, cutShort);
        return refused(cutShort.text().data());
    }
    const Vrf::VrfIdMap::VrfId vrf{special.vrfId()};
    const MvpnVrfIntfId entry = entryOf(vrf);
    if (entry == MvpnVrfIntfId()) {
        reportMulticast(context.namedCounters(), packetId, entryNotFound, vrf.value);
        return refused(entryNotFound.text().data());
    }
    const Lumo::IntfId pmsi = Lumo::IntfId::fromValue(special.pmsi());
    const std::uint16_t vlan = Lumo::VlanIntfId::isVlanIntfId(entry.intfId)
                                   ? Lumo::VlanIntfId::vlanId(entry.intfId)
                                   : std::uint16_t{0};
    context.replacePacket(mplsFrame(context.pkt()->data(), vlan), PktCtxParse::reparse);
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
