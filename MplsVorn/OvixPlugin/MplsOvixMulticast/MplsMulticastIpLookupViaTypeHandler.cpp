#include "MplsOvixMulticast/MplsMulticastIpLookupViaTypeHandler.h"

#include "MplsOvixMulticast/EthernetFrame.h"
#include "MplsOvixMulticast/MulticastEvents.h"
#include "Ovix/viaset/MplsContext.h"
#include "Tessel/Assert.h"

namespace Ovix {

namespace {

constexpr FrameEvent noMulticastIpLookupVia{FrameCategory::drop, "No multicastIpLookupVia"};
constexpr FrameEvent notBottomOfStack{FrameCategory::drop,
                                      "Unexpected MPLS packet with bos as false"};
constexpr FrameEvent payloadNotIp{FrameCategory::drop, "Multicast payload is not IP"};
constexpr FrameEvent refusedByCpu{FrameCategory::drop, "CPU port refused the special packet"};

void drop(const RoutingContext& context, const FrameEvent& event) {
    reportMulticast(context.namedCounters().get(), context.packetId(), event);
}

/// 0 for what is not an IP packet.
std::uint16_t ipEtherType(const PacketHeader* header) noexcept {
    if (header != nullptr && header->pktHdrType() == PktHdrType::ipv4) {
        return Wire::EtherType::ipv4;
    }
    if (header != nullptr && header->pktHdrType() == PktHdrType::ipv6) {
        return Wire::EtherType::ipv6;
    }
    return 0;
}

/// The VLAN's number; an interface that is not a VLAN's must not look like one, so its frames carry
/// a priority tag (802.1Q), which names none.
std::uint16_t vlanOf(Lumo::IntfId lookup) noexcept {
    return Lumo::VlanIntfId::isVlanIntfId(lookup)
               ? static_cast<std::uint16_t>(Lumo::VlanIntfId::vlanId(lookup) &
                                            Wire::Tag::vlanIdMask)
               : std::uint16_t{0};
}

/// Whether the frame's tags can be replaced by that of a special packet.
bool tagsUnderstood(const RoutingContext& context) {
    const Ptr<PacketHeader> tags =
        context.packetContext()->parsedPkt().firstHeaderOfType(PktHdrType::vlanTags);
    if (!tags) {
        traceMulticast(context.packetId(), "No dot1q tag");
        return true;
    }
    traceMulticast(context.packetId(), "Detected dot1q tag");
    const auto* data = static_cast<const VlanTagHeaderData*>(tags->headerData().get());
    assert(data != nullptr);
    if (data->vlanTags().size() != 1) {
        traceMulticast(context.packetId(), "Unexpected number of tags");
        return false;
    }
    return true;
}

} // namespace

Ptr<MplsMulticastIpLookupViaTypeHandler>
MplsMulticastIpLookupViaTypeHandler::MplsMulticastIpLookupViaTypeHandlerIs(
    Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables, const Ptr<Ports>& ports) {
    return Tessel::make<MplsMulticastIpLookupViaTypeHandler>(viaType, lfibTables, ports);
}

Ptr<MplsMulticastIpLookupViaTypeHandler> mplsMulticastIpLookupViaTypeHandlerFactory(
    Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables, const Ptr<Ports>& ports) {
    return MplsMulticastIpLookupViaTypeHandler::MplsMulticastIpLookupViaTypeHandlerIs(
        viaType, lfibTables, ports);
}

ProcessingResult
MplsMulticastIpLookupViaTypeHandler::processMplsVia(const Ptr<MplsContext>& context) {
    Tessel::hardAssert(context->viaIndex().has_value(), "viaIndex must be set for transit vias");
    const RoutingContext& routing = *context->routingContext();
    const OvixMplsVia via = context->viaSet()->via(*context->viaIndex());
    if (via.isEq(OvixMplsVia())) {
        drop(routing, noMulticastIpLookupVia);
        return frameDealtWith;
    }
    if (!context->entry().bos()) {
        drop(routing, notBottomOfStack);
        return frameDealtWith;
    }
    const Ptr<Port> cpu = ports_->port(Lumo::CpuIntfId::cpuIdToIntfId(0));
    if (!cpu) {
        traceMulticast(routing.packetId(), "Port for CPU does not exist, Ignore");
        return frameDealtWith;
    }
    if (tagsUnderstood(routing)) {
        deliver(*context, via, *cpu);
    }
    return frameDealtWith;
}

void MplsMulticastIpLookupViaTypeHandler::deliver(const MplsContext& context,
                                                  const OvixMplsVia& via, Port& cpu) const {
    const RoutingContext& routing = *context.routingContext();
    PacketContext& packet = *routing.packetContext();
    const PacketHeader* inner = context.packetHeader().get();
    const std::uint16_t etherType = ipEtherType(inner);
    const Ptr<PacketHeader> eth = packet.parsedPkt().firstHeaderOfType(PktHdrType::eth);
    if (etherType == 0 || !eth) {
        drop(routing, payloadNotIp);
        return;
    }
    // Taken from the packet as it is: the parser has checked that the headers are whole.
    const Wire::Bytes macs = eth->bytes().first(Wire::Ethernet::macsSize);
    const Wire::Bytes ip = packet.getPkt()->offsetFront(inner->offset());
    if (!cpu.send(ethernetFrame(macs, vlanOf(via.intfId), etherType, ip))) {
        drop(routing, refusedByCpu);
        return;
    }
    traceMulticast(routing.packetId(), "Sent special packet to CPU.");
}

} // namespace Ovix
