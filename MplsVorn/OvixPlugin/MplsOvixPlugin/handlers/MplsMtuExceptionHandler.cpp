#include "handlers/MplsMtuExceptionHandler.h"

#include <algorithm>
#include <array>
#include <bit>

#include "FrameEvents.h"
#include "Lumo/EthAddr.h"
#include "Lumo/RawTxPam.h"

namespace Ovix {

namespace {

constexpr FrameEvent mtuException{FrameCategory::exceptional, "Mpls mtu exception handler."};

constexpr std::string_view loopback = "lo";
constexpr std::size_t etherTypeOffset = 12;

struct Trailer {
    std::uint64_t egress;
    std::uint64_t packetId;
};
using TrailerBytes = std::array<std::uint8_t, sizeof(Trailer)>;
// However short the frame, its copy has an EtherType to overwrite.
static_assert(sizeof(Trailer) >= etherTypeOffset + sizeof Lumo::EtherType::mplsException);

Ptr<Lumo::Pkt> exceptionFrame(std::span<const std::uint8_t> frame, const Trailer& trailer) {
    Ptr<Lumo::Pkt> packet = Lumo::globalPktManager()->newPkt();
    const std::span<std::uint8_t> bytes = packet->newSharedHeadData(frame.size() + sizeof(Trailer));
    const auto end = std::copy(frame.begin(), frame.end(), bytes.begin());
    const auto trailerBytes = std::bit_cast<TrailerBytes>(trailer);
    std::copy(trailerBytes.begin(), trailerBytes.end(), end);
    bytes[etherTypeOffset] = Lumo::EtherType::mplsException >> 8U;
    bytes[etherTypeOffset + 1] = Lumo::EtherType::mplsException & 0xffU;
    return packet;
}

} // namespace

void MplsMtuExceptionHandler::handle(const Ptr<RoutingContext>& context, Lumo::IntfId egress) {
    report(*context, mtuException);
    const std::span<const std::uint8_t> frame = context->packetContext()->pkt()->data();
    if (frame.size() > Lumo::Pkt::maxBytes - sizeof(Trailer)) {
        return; // no packet is long enough for the copy
    }
    const Ptr<Lumo::Pkt> exception = exceptionFrame(frame, {egress.value(), context->packetId()});
    const Ptr<Lumo::RawTxPam> port = Lumo::rawTxPamFactory(loopback);
    port->enabledIs(true);
    port->ethProtocolIs(Lumo::EtherType::mplsException);
    port->send(exception, Lumo::if_nametoindexAt(loopback));
}

} // namespace Ovix
