#include "Live/ports/SegmentedFrame.h"

#include "Answers/Answer.h"
#include "Ip/IpPacket.h"
#include "Lumo/EthAddr.h"
#include "Lumo/MplsLabel.h"
#include "Lumo/NetInt.h"

namespace OvixAgent {

namespace {

using Bytes = std::span<const std::uint8_t>;
using Ovix::PktHdrType;

constexpr std::size_t typeAt = 12;
constexpr std::size_t vlanSize = 4;
constexpr std::size_t udpHeaderSize = 8;
constexpr std::size_t longestSegment = 0xffff; // as an IPv6 header can tell it

/// The kinds of segmentation (virtio 1.2 section 5.1.6).
constexpr std::uint8_t tcpOverIpv4 = 1;
constexpr std::uint8_t tcpOverIpv6 = 4;
constexpr std::uint8_t udpOverIp = 5;
/// Beside the kind: the first segment has a CWR flag.
constexpr std::uint8_t hasCwr = 0x80;

std::uint16_t field(Bytes bytes, std::size_t at) noexcept {
    return Lumo::NetU16::load(bytes.data() + at).value();
}

struct Network {
    PktHdrType type = PktHdrType::none;
    std::size_t at = 0;
};

Network behindLabels(Bytes frame, std::size_t at) noexcept {
    bool isBottom = false;
    while (!isBottom) {
        if (frame.size() < at + Lumo::MplsLabelEntry::size) {
            return {};
        }
        isBottom = Lumo::MplsLabelEntry::load(frame.data() + at).bos();
        at += Lumo::MplsLabelEntry::size;
    }
    // What labels carry is told by its first nibble (RFC 4928), which is verified with the rest.
    const bool isIpv4 = at < frame.size() && frame[at] >> 4U == 4;
    return {isIpv4 ? PktHdrType::ipv4 : PktHdrType::ipv6, at};
}

/// The IP header behind Ethernet, tags and labels.
Network findNetwork(Bytes frame) noexcept {
    namespace EtherType = Lumo::EtherType;
    std::size_t at = typeAt;
    while (frame.size() >= at + sizeof(std::uint16_t)) {
        const std::uint16_t type = field(frame, at);
        const std::size_t next = at + sizeof type;
        switch (type) {
        case EtherType::vlan:
        case EtherType::serviceVlan:
            at += vlanSize;
            break;
        case EtherType::mpls:
        case EtherType::mplsUpstream:
            return behindLabels(frame, next);
        case EtherType::ipv4:
            return {PktHdrType::ipv4, next};
        case EtherType::ipv6:
            return {PktHdrType::ipv6, next};
        default:
            return {};
        }
    }
    return {};
}

bool isOfKind(std::uint8_t segmentation, PktHdrType type, std::uint8_t protocol) noexcept {
    const bool isIpv4 = type == PktHdrType::ipv4;
    switch (segmentation) {
    case tcpOverIpv4:
    case tcpOverIpv4 | hasCwr:
        return isIpv4 && protocol == IpProtocol::tcp;
    case tcpOverIpv6:
    case tcpOverIpv6 | hasCwr:
        return !isIpv4 && protocol == IpProtocol::tcp;
    case udpOverIp:
        return protocol == IpProtocol::udp;
    default:
        return false;
    }
}

/// What follows the IP header, and where in the packet.
struct Upper {
    std::uint8_t protocol = 0;
    std::size_t at = 0;
};

/// An IPv6 extension header counts as what follows.
Upper upperOf(const IpPacket& packet) noexcept {
    constexpr std::size_t ipv6Size = 40;
    if (packet.type == PktHdrType::ipv4) {
        return {packet.bytes[9], (packet.bytes[0] & 0x0fU) * std::size_t{4}};
    }
    return {packet.bytes[6], ipv6Size};
}

bool isFragment(const IpPacket& packet) noexcept {
    constexpr std::size_t fragmentAt = 6;
    constexpr unsigned int moreFragmentsAndOffset = 0x3fff;
    return packet.type == PktHdrType::ipv4 &&
           (field(packet.bytes, fragmentAt) & moreFragmentsAndOffset) != 0;
}

/// The size of the transport header; 0 when it does not fit.
std::size_t transportSize(Bytes segment, bool isTcp) noexcept {
    constexpr std::size_t smallestTcp = 20;
    constexpr std::size_t dataOffsetAt = 12;
    if (!isTcp) {
        return segment.size() >= udpHeaderSize ? udpHeaderSize : 0;
    }
    if (segment.size() < smallestTcp) {
        return 0;
    }
    const std::size_t size = (segment[dataOffsetAt] >> 4U) * std::size_t{4};
    return size >= smallestTcp && size <= segment.size() ? size : 0;
}

} // namespace

std::optional<SegmentedFrame> readSegmentedFrame(Bytes frame, const OffloadedWork& work) noexcept {
    const Network network = findNetwork(frame);
    if (!isIp(network.type) || work.segmentSize == 0) {
        return std::nullopt;
    }
    const IpPacket packet{network.type, frame.subspan(network.at)};
    if (!packet.fault(0).empty() || isFragment(packet)) {
        return std::nullopt;
    }
    const Upper upper = upperOf(packet);
    if (packet.length() - upper.at > longestSegment ||
        !isOfKind(work.segmentation, network.type, upper.protocol)) {
        return std::nullopt;
    }
    SegmentedFrame found;
    found.isIpv4 = network.type == PktHdrType::ipv4;
    found.isTcp = upper.protocol == IpProtocol::tcp;
    found.network = network.at;
    found.transport = network.at + upper.at;
    found.end = network.at + packet.length();
    const std::size_t size =
        transportSize(frame.subspan(found.transport, found.end - found.transport), found.isTcp);
    if (size == 0 || (work.needsChecksum() && work.checksumStart != found.transport)) {
        return std::nullopt;
    }
    found.payload = found.transport + size;
    found.segmentSize = work.segmentSize;
    found.pseudoHeader = pseudoHeaderSum(packet.source(), packet.destination(), upper.protocol, 0);
    return found;
}

} // namespace OvixAgent
