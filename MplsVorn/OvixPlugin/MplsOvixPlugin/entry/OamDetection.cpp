// Recognises MPLS OAM packets (LSP ping, RFC 8029), which belong to the CPU.

#include <array>

#include "FrameEvents.h"
#include "MplsOvixPlugin.h"
#include "Ovix/packet/TtlBytes.h"
#include "Wire/LspEcho.h"
#include "Wire/Transport.h"

namespace Ovix {

namespace {

Lumo::IpGenPrefix prefix(Lumo::IpFamily family, std::array<std::uint8_t, 16> bytes,
                         std::uint8_t length) noexcept {
    return {family == Lumo::IpFamily::ipv4 ? Lumo::IpGenAddr::ipv4(bytes.data())
                                           : Lumo::IpGenAddr::ipv6(bytes.data()),
            length};
}

const Lumo::IpGenPrefix ipv4Loopback = prefix(Lumo::IpFamily::ipv4, {127}, 8);
const Lumo::IpGenPrefix ipv4MappedLoopback =
    prefix(Lumo::IpFamily::ipv6, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 127}, 104);
const Lumo::IpGenPrefix ipv6Loopback =
    prefix(Lumo::IpFamily::ipv6, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 128);

} // namespace

bool MplsOvixPlugin::checkForOam(const Ptr<RoutingContext>& context,
                                 const Ptr<PacketHeader>& mplsHeader,
                                 const Ptr<MplsHeaderData>& labels) const {
    for (const Lumo::MplsLabelEntry entry : *labels) {
        if (entry.label() == Lumo::routerAlert) {
            return true;
        }
        if (!entry.label().isExplicitNull()) {
            return false;
        }
    }
    return checkForOamMaybeUdpHdr(context, headerAfter(*context, *mplsHeader));
}

bool MplsOvixPlugin::checkForOamMaybeUdpHdr(const Ptr<RoutingContext>& context,
                                            const Ptr<PacketHeader>& header) const {
    return isLspPing(*context, header);
}

bool isLspPing(const RoutingContext& context, const Ptr<PacketHeader>& header) {
    if (!header) {
        return false;
    }
    ParsedPacket& parsed = context.packetContext()->parsedPkt();
    parsed.maybeDoFullParse();
    const Ptr<PacketHeader> ip = parsed.header(header->position());
    const Lumo::IpGenAddr destination = ip ? ipDestination(*ip) : Lumo::IpGenAddr();
    if (destination.family() == Lumo::IpFamily::none) {
        traceFrame(context, "Next header is not v4 or v6");
        return false;
    }
    if (!ipv4Loopback.contains(destination) && !ipv4MappedLoopback.contains(destination) &&
        !ipv6Loopback.contains(destination)) {
        return false;
    }
    const Ptr<PacketHeader> udp = parsed.header(ip->position() + 1);
    return udp && udp->pktHdrType() == PktHdrType::udp &&
           Wire::Udp(udp->bytes()).destinationPort() == Wire::lspEchoPort;
}

} // namespace Ovix
