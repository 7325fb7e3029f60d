// Which frames have a lane of their own to the packet thread.

#include <algorithm>
#include <array>

#include "Live/workers/Worker.h"
#include "Wire/Ethernet.h"
#include "Wire/Ip.h"
#include "Wire/LabelStack.h"

namespace OvixAgent {

namespace {

constexpr std::uint8_t protocolTcp = 6;
constexpr std::uint8_t protocolUdp = 17;
constexpr std::uint8_t protocolRsvp = 46;
constexpr std::uint8_t protocolOspf = 89;

/// LDP, BGP, BFD of one hop and of several, and LSP echo packets.
constexpr std::array<std::uint16_t, 6> urgentPorts{179, 646, 3503, 3784, 3785, 4784};

bool isUrgentPort(std::uint16_t port) noexcept {
    return std::find(urgentPorts.begin(), urgentPorts.end(), port) != urgentPorts.end();
}

bool isUrgentPayload(std::uint8_t protocol, Wire::Bytes payload) noexcept {
    if (protocol == protocolOspf || protocol == protocolRsvp) {
        return true;
    }
    constexpr std::size_t ports = 4;
    return (protocol == protocolTcp || protocol == protocolUdp) && payload.size() >= ports &&
           (isUrgentPort(Lumo::NetU16::load(payload.data()).value()) ||
            isUrgentPort(Lumo::NetU16::load(payload.data() + 2).value()));
}

bool isUrgentPacket(Wire::Bytes packet) noexcept {
    if (packet.empty()) {
        return false;
    }
    constexpr unsigned versionShift = 4;
    constexpr std::size_t ipv6Protocol = 6;
    constexpr std::size_t ipv4Protocol = 9;
    if (packet[0] >> versionShift == 6 && packet.size() >= Wire::Ipv6::size) {
        return isUrgentPayload(packet[ipv6Protocol], packet.subspan(Wire::Ipv6::size));
    }
    const std::size_t header = (packet[0] & 0xfU) * std::size_t{4};
    return packet[0] >> versionShift == 4 && header >= Wire::Ipv4::size &&
           packet.size() >= header && isUrgentPayload(packet[ipv4Protocol], packet.subspan(header));
}

} // namespace

bool isUrgent(Wire::Bytes frame) noexcept {
    if (frame.size() < Wire::Ethernet::size) {
        return false;
    }
    const Wire::TagWalk tags = Wire::behindTags(frame);
    if (tags.etherType() <= Wire::EtherType::longestLength) { // as IS-IS has it
        return true;
    }
    if (!Wire::EtherType::isMpls(tags.etherType())) {
        return isUrgentPacket(tags.rest());
    }
    Wire::LabelWalk labels(tags.rest());
    bool isReserved = false;
    for (Lumo::MplsLabelEntry entry; labels.next(entry);) {
        const std::uint32_t label = entry.label().value();
        constexpr std::uint32_t routerAlert = 1;
        constexpr std::uint32_t associatedChannel = 13;
        isReserved = isReserved || label == routerAlert || label == associatedChannel;
    }
    return isReserved || (labels.isAtBottom() && isUrgentPacket(labels.rest()));
}

} // namespace OvixAgent
