#include "Live/ports/SegmentedFrame.h"

#include <cassert>

#include "Ip/IpPacket.h"
#include "Wire/Ethernet.h"
#include "Wire/Ip.h"
#include "Wire/LabelStack.h"
#include "Wire/Transport.h"

namespace OvixAgent {

namespace {

using Ovix::PktHdrType;
using Wire::Tcp;
using Wire::Udp;

constexpr std::size_t longestSegment = 0xffff; // the largest IPv6 payload length

/// The kinds of segmentation (virtio 1.2 section 5.1.6).
constexpr std::uint8_t tcpOverIpv4 = 1;
constexpr std::uint8_t tcpOverIpv6 = 4;
constexpr std::uint8_t udpOverIp = 5;
/// Beside the kind: the first segment has a CWR flag.
constexpr std::uint8_t hasCwr = 0x80;

/// The payload of labels is recognised by its first nibble (RFC 4928) and validated later.
IpPacket behindLabels(Wire::Bytes stack) noexcept {
    Wire::LabelWalk walk(stack);
    for (Lumo::MplsLabelEntry entry; walk.next(entry);) {
    }
    if (!walk.isAtBottom()) {
        return {PktHdrType::none, {}};
    }
    const bool isIpv4 = Wire::ipVersion(walk.rest()) == 4;
    return {isIpv4 ? PktHdrType::ipv4 : PktHdrType::ipv6, walk.rest()};
}

/// The IP packet behind Ethernet, tags and labels; of no type when there is none.
IpPacket findPacket(Wire::Bytes frame) noexcept {
    const Wire::Ethernet ethernet(frame);
    if (!ethernet) {
        return {PktHdrType::none, {}};
    }
    Wire::TagWalk walk(ethernet.etherType(), frame.subspan(Wire::Ethernet::size));
    for (Wire::Tag tag; walk.next(tag);) {
    }
    if (Wire::EtherType::isMpls(walk.etherType())) {
        return behindLabels(walk.rest());
    }
    const PktHdrType type = walk.etherType() == Wire::EtherType::ipv4   ? PktHdrType::ipv4
                            : walk.etherType() == Wire::EtherType::ipv6 ? PktHdrType::ipv6
                                                                        : PktHdrType::none;
    return {type, walk.rest()};
}

bool isOfKind(std::uint8_t segmentation, PktHdrType type, std::uint8_t protocol) noexcept {
    const bool isIpv4 = type == PktHdrType::ipv4;
    switch (segmentation) {
    case tcpOverIpv4:
    case tcpOverIpv4 | hasCwr:
        return isIpv4 && protocol == Wire::IpProtocol::tcp;
    case tcpOverIpv6:
    case tcpOverIpv6 | hasCwr:
        return !isIpv4 && protocol == Wire::IpProtocol::tcp;
    case udpOverIp:
        return protocol == Wire::IpProtocol::udp;
    default:
        return false;
    }
}

/// What follows the IP header, which may be an IPv6 extension header.
struct NextHeader {
    std::uint8_t protocol = 0;
    std::size_t offset = 0; ///< in the packet
};

NextHeader nextHeader(const IpPacket& packet) noexcept {
    if (packet.type == PktHdrType::ipv4) {
        const Wire::Ipv4 header(packet.bytes);
        return {header.protocol(), header.headerSize()};
    }
    return {Wire::Ipv6(packet.bytes).nextHeader(), Wire::Ipv6::size};
}

bool isFragment(const IpPacket& packet) noexcept {
    constexpr std::uint16_t fragmentBits =
        Wire::Ipv4::moreFragmentsFlag | Wire::Ipv4::fragmentOffsetMask;
    return packet.type == PktHdrType::ipv4 &&
           (Wire::Ipv4(packet.bytes).fragment() & fragmentBits) != 0;
}

/// The size of the transport header; 0 when it does not fit.
std::size_t transportSize(Wire::Bytes segment, bool isTcp) noexcept {
    if (!isTcp) {
        return Udp(segment) ? Udp::size : 0;
    }
    const Tcp header(segment);
    const std::size_t size = header ? header.headerSize() : 0;
    return size >= Tcp::size && size <= segment.size() ? size : 0;
}

} // namespace

std::optional<SegmentedFrame> readSegmentedFrame(Wire::Bytes frame,
                                                 const OffloadedWork& work) noexcept {
    const IpPacket packet = findPacket(frame);
    if (!isIp(packet.type) || work.segmentSize == 0 || !packet.fault(0).empty() ||
        isFragment(packet)) {
        return std::nullopt;
    }
    const NextHeader next = nextHeader(packet);
    if (packet.length() - next.offset > longestSegment ||
        !isOfKind(work.segmentation, packet.type, next.protocol)) {
        return std::nullopt;
    }
    SegmentedFrame found;
    found.isIpv4 = packet.type == PktHdrType::ipv4;
    found.isTcp = next.protocol == Wire::IpProtocol::tcp;
    found.network = frame.size() - packet.bytes.size();
    found.transport = found.network + next.offset;
    found.end = found.network + packet.length();
    const std::size_t size =
        transportSize(frame.subspan(found.transport, found.end - found.transport), found.isTcp);
    if (size == 0 || (work.needsChecksum() && work.checksumStart != found.transport)) {
        return std::nullopt;
    }
    found.payload = found.transport + size;
    assert(found.payload <= found.end);
    found.segmentSize = work.segmentSize;
    found.pseudoHeader =
        Wire::pseudoHeaderSum(packet.source(), packet.destination(), next.protocol, 0);
    return found;
}

} // namespace OvixAgent
