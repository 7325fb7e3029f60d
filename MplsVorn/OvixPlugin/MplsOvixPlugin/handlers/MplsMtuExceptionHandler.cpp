#include "handlers/MplsMtuExceptionHandler.h"

#include <algorithm>
#include <cstring>

#include "FrameEvents.h"
#include "Lumo/RawTxPam.h"
#include "Wire/MplsException.h"

namespace Ovix {

namespace {

constexpr FrameEvent mtuException{FrameCategory::exceptional, "Mpls mtu exception handler."};

constexpr std::string_view loopback = "lo";
using Wire::MtuExceptionTrailer;

Ptr<Lumo::Pkt> exceptionFrame(Wire::Bytes frame, const MtuExceptionTrailer& trailer) {
    Ptr<Lumo::Pkt> packet = Lumo::globalPktManager()->newPkt();
    const Wire::WritableBytes bytes =
        packet->newSharedHeadData(frame.size() + MtuExceptionTrailer::size);
    std::copy(frame.begin(), frame.end(), bytes.begin());
    std::memcpy(bytes.data() + frame.size(), &trailer, sizeof trailer);
    Wire::EthernetWriter(bytes).etherTypeIs(Wire::EtherType::mplsException);
    return packet;
}

} // namespace

void MplsMtuExceptionHandler::handle(const Ptr<RoutingContext>& context, Lumo::IntfId egress) {
    report(*context, mtuException);
    const Wire::Bytes frame = context->packetContext()->pkt()->data();
    if (frame.size() > Lumo::Pkt::maxBytes - MtuExceptionTrailer::size) {
        return; // no packet is long enough for the copy
    }
    const Ptr<Lumo::Pkt> exception = exceptionFrame(frame, {egress.value(), context->packetId()});
    const Ptr<Lumo::RawTxPam> port = Lumo::rawTxPamFactory(loopback);
    port->enabledIs(true);
    port->ethProtocolIs(Wire::EtherType::mplsException);
    port->send(exception, Lumo::if_nametoindexAt(loopback));
}

} // namespace Ovix
