#include <algorithm>
#include <array>

#include "Ovix/packet/PacketContext.h"
#include "Wire/Ip.h"
#include "Wire/LabelStack.h"
#include "Wire/Transport.h"

namespace Ovix {

namespace {

using Wire::Bytes;

/// A header found: how long it is and what follows it.
struct Found {
    std::size_t length = 0;
    PktHdrType next = PktHdrType::none;
};

bool parseEth(Bytes bytes, Found& found) {
    const Wire::Ethernet header(bytes);
    if (!header) {
        return false;
    }
    found = {Wire::Ethernet::size, PacketParser::announcedBy(header.etherType())};
    return true;
}

/// `tpid` is the EtherType in front of the bytes.
bool parseTags(Bytes bytes, std::uint16_t tpid, Found& found, Ptr<PacketHeaderData>& data) {
    std::array<Wire::Tag, VlanTagHeaderData::maxTags> tags;
    std::size_t count = 0;
    Wire::TagWalk walk(tpid, bytes);
    while (count < tags.size() && walk.next(tags[count])) {
        ++count;
    }
    if (count == 0) {
        return false;
    }
    const std::uint16_t type = walk.etherType();
    found = {count * Wire::Tag::size,
             Wire::EtherType::isTag(type) ? PktHdrType::none : PacketParser::announcedBy(type)};
    data = Tessel::make<VlanTagHeaderData>(std::span(tags.data(), count));
    return true;
}

/// The stack to its bottom, or as far as there are whole entries. Without one whole entry the
/// header has no data.
bool parseMpls(const Ptr<Lumo::Pkt>& pkt, std::size_t offset, Found& found,
               Ptr<PacketHeaderData>& data) {
    const Bytes bytes = pkt->offsetFront(offset);
    Wire::LabelWalk walk(bytes);
    Lumo::MplsLabelEntry entry;
    bool indicator = false;
    bool entropy = false;
    while (walk.next(entry)) {
        entropy = entropy || (indicator && !entry.label().isSpecialPurpose());
        indicator = indicator || entry.label() == Lumo::entropyLabelIndicator;
    }
    const std::size_t length = bytes.size() - walk.rest().size();
    if (length == 0) {
        return true;
    }
    found = {length,
             walk.isAtBottom() ? PacketParser::beneathLabels(walk.rest()) : PktHdrType::none};
    data = Tessel::make<MplsHeaderData>(
        pkt, static_cast<std::uint32_t>(offset),
        static_cast<std::uint32_t>(length / Lumo::MplsLabelEntry::size), entropy);
    return true;
}

/// What lies beyond the total length is padding. Only a first fragment shows its upper layer.
bool parseIpv4(Bytes bytes, Found& found) {
    const std::size_t length = Wire::ipv4HeaderLength(bytes);
    if (length == 0) {
        return false;
    }
    const Wire::Ipv4 header(bytes);
    const std::size_t totalLength = header.totalLength() != 0 ? header.totalLength() : bytes.size();
    const bool udp = header.protocol() == Wire::IpProtocol::udp && header.isFirstFragment() &&
                     totalLength - header.headerSize() >= Wire::Udp::size;
    found = {length, udp ? PktHdrType::udp : PktHdrType::none};
    return true;
}

/// The header's length covers its extension headers, so that the upper layer is what follows. A
/// payload length of 0 means a jumbogram (RFC 2675).
bool parseIpv6(Bytes bytes, Found& found) {
    const Wire::Ipv6 header(bytes);
    if (!header) {
        return false;
    }
    const Wire::UpperLayer upper = Wire::ipv6UpperLayer(bytes);
    const std::size_t payload = header.payloadLength();
    const bool fits = payload == 0 || Wire::Ipv6::size + payload >= upper.offset + Wire::Udp::size;
    const bool udp =
        upper.isWhole && upper.isFirstFragment && upper.protocol == Wire::IpProtocol::udp && fits;
    found = {upper.offset, udp ? PktHdrType::udp : PktHdrType::none};
    return true;
}

bool parseUdp(Bytes bytes, Found& found) {
    found = {Wire::Udp::size, PktHdrType::none};
    return static_cast<bool>(Wire::Udp(bytes));
}

/// The EtherType that ends at `offset`.
std::uint16_t typeBefore(const Lumo::Pkt& pkt, std::size_t offset) noexcept {
    assert(offset >= Wire::Ethernet::size && offset <= pkt.bytes());
    return Lumo::NetU16::load(pkt.data().data() + offset - Wire::Ethernet::etherTypeSize).value();
}

bool parseHeader(const Ptr<Lumo::Pkt>& pkt, PktHdrType type, std::size_t offset, Found& found,
                 Ptr<PacketHeaderData>& data) {
    const Bytes bytes = pkt->offsetFront(offset);
    switch (type) {
    case PktHdrType::eth:
        return parseEth(bytes, found);
    case PktHdrType::vlanTags:
        return parseTags(bytes, typeBefore(*pkt, offset), found, data);
    case PktHdrType::mpls:
        return parseMpls(pkt, offset, found, data);
    case PktHdrType::ipv4:
        return parseIpv4(bytes, found);
    case PktHdrType::ipv6:
        return parseIpv6(bytes, found);
    case PktHdrType::udp:
        return parseUdp(bytes, found);
    default:
        return false;
    }
}

} // namespace

PktHdrType PacketParser::announcedBy(std::uint16_t etherType) noexcept {
    switch (etherType) {
    case Wire::EtherType::mpls:
    case Wire::EtherType::mplsUpstream:
        return PktHdrType::mpls;
    case Wire::EtherType::ipv4:
        return PktHdrType::ipv4;
    case Wire::EtherType::ipv6:
        return PktHdrType::ipv6;
    default:
        return Wire::EtherType::isTag(etherType) ? PktHdrType::vlanTags : PktHdrType::none;
    }
}

// A label stack does not name its payload; the first nibble identifies IP, and what is not IP is
// taken for Ethernet (RFC 4928 explains why pseudowires avoid 4 and 6 there).
PktHdrType PacketParser::beneathLabels(Bytes payload) noexcept {
    if (payload.empty()) {
        return PktHdrType::none;
    }
    switch (Wire::ipVersion(payload)) {
    case 4:
        return PktHdrType::ipv4;
    case 6:
        return PktHdrType::ipv6;
    default:
        return PktHdrType::eth;
    }
}

std::size_t PacketParser::ipHeaderLength(PktHdrType type, Bytes bytes) noexcept {
    if (type == PktHdrType::ipv4) {
        return Wire::ipv4HeaderLength(bytes);
    }
    Found found;
    return type == PktHdrType::ipv6 && parseIpv6(bytes, found) ? found.length : 0;
}

void PacketParser::parseNext(ParsedPacket& parsed) {
    const PktHdrType type = parsed.nextType_;
    parsed.nextType_ = PktHdrType::none;
    if (type == PktHdrType::none || parsed.count_ == ParsedPacket::maxHeaders) {
        return;
    }
    Found found;
    Ptr<PacketHeaderData> data;
    if (!parseHeader(parsed.pkt_, type, parsed.nextOffset_, found, data)) {
        return;
    }
    const auto length = static_cast<std::uint32_t>(found.length);
    parsed.headers_[static_cast<std::size_t>(parsed.count_)] = Tessel::make<PacketHeader>(
        parsed.count_, type, parsed.pkt_, parsed.nextOffset_, length, std::move(data));
    ++parsed.count_;
    parsed.nextOffset_ += length;
    parsed.nextType_ = found.next;
}

} // namespace Ovix
