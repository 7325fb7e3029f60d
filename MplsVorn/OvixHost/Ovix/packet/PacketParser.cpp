#include <algorithm>
#include <array>
#include <optional>

#include "Lumo/EthAddr.h"
#include "Ovix/packet/PacketContext.h"

namespace Ovix {

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t ethSize = 14;
constexpr std::size_t tagSize = 4;
constexpr std::size_t ipv4Size = 20;
constexpr std::size_t ipv6Size = 40;
constexpr std::size_t udpSize = 8;
constexpr std::uint8_t udpNumber = 17;

/// A header found: how long it is and what follows it.
struct Found {
    std::size_t length = 0;
    PktHdrType next = PktHdrType::none;
};

std::uint16_t u16(Bytes bytes, std::size_t at) noexcept {
    return Lumo::NetU16::load(bytes.data() + at).value();
}

bool isTag(std::uint16_t etherType) noexcept {
    constexpr std::uint16_t legacyStackedVlan = 0x9100;
    return etherType == Lumo::EtherType::vlan || etherType == Lumo::EtherType::serviceVlan ||
           etherType == legacyStackedVlan;
}

PktHdrType afterEtherType(std::uint16_t etherType) noexcept {
    switch (etherType) {
    case Lumo::EtherType::mpls:
    case Lumo::EtherType::mplsUpstream:
        return PktHdrType::mpls;
    case Lumo::EtherType::ipv4:
        return PktHdrType::ipv4;
    case Lumo::EtherType::ipv6:
        return PktHdrType::ipv6;
    default:
        return isTag(etherType) ? PktHdrType::vlanTags : PktHdrType::none;
    }
}

/// What a label stack carries is not said by the stack; the first nibble tells IP, and what is not
/// IP is taken for Ethernet (RFC 4928 explains why pseudowires avoid 4 and 6 there).
PktHdrType afterLabels(Bytes payload) noexcept {
    if (payload.empty()) {
        return PktHdrType::none;
    }
    switch (payload[0] >> 4U) {
    case 4:
        return PktHdrType::ipv4;
    case 6:
        return PktHdrType::ipv6;
    default:
        return PktHdrType::eth;
    }
}

bool parseEth(Bytes bytes, Found& found) {
    if (bytes.size() < ethSize) {
        return false;
    }
    found = {ethSize, afterEtherType(u16(bytes, ethSize - 2))};
    return true;
}

/// `tpid` is the EtherType in front of the bytes.
bool parseTags(Bytes bytes, std::uint16_t tpid, Found& found, Ptr<PacketHeaderData>& data) {
    std::array<VlanTagHeaderData::Tag, VlanTagHeaderData::maxTags> tags;
    std::size_t count = 0;
    std::uint16_t etherType = tpid;
    while (count < tags.size() && isTag(etherType) && bytes.size() >= (count + 1) * tagSize) {
        tags[count] = {Lumo::NetU16(etherType), Lumo::NetU16(u16(bytes, count * tagSize))};
        etherType = u16(bytes, count * tagSize + 2);
        ++count;
    }
    if (count == 0) {
        return false;
    }
    const PktHdrType next = isTag(etherType) ? PktHdrType::none : afterEtherType(etherType);
    found = {count * tagSize, next};
    data = Tessel::make<VlanTagHeaderData>(std::span(tags.data(), count));
    return true;
}

/// The stack to its bottom, or as far as there are whole entries. Without one whole entry the
/// header has no data.
bool parseMpls(const Ptr<Lumo::Pkt>& pkt, std::size_t offset, Found& found,
               Ptr<PacketHeaderData>& data) {
    const Bytes bytes = pkt->offsetFront(offset);
    std::size_t entries = 0;
    bool bottom = false;
    bool indicator = false;
    bool entropy = false;
    while (!bottom && bytes.size() >= (entries + 1) * Lumo::MplsLabelEntry::size) {
        const auto entry =
            Lumo::MplsLabelEntry::load(bytes.data() + entries * Lumo::MplsLabelEntry::size);
        entropy = entropy || (indicator && !entry.label().isSpecialPurpose());
        indicator = indicator || entry.label() == Lumo::entropyLabelIndicator;
        bottom = entry.bos();
        ++entries;
    }
    if (entries == 0) {
        return true;
    }
    const std::size_t length = entries * Lumo::MplsLabelEntry::size;
    found = {length, bottom ? afterLabels(bytes.subspan(length)) : PktHdrType::none};
    data = Tessel::make<MplsHeaderData>(pkt, static_cast<std::uint32_t>(offset),
                                        static_cast<std::uint32_t>(entries), entropy);
    return true;
}

/// The fixed header and its options must be there whole, and the total length must have room for
/// them (RFC 1812 section 5.2.2). It may exceed what was captured; 0 stands in a capture of a
/// packet that was segmented later. What lies beyond it is padding. Only a first fragment shows its
/// upper layer.
bool parseIpv4(Bytes bytes, Found& found) {
    if (bytes.size() < ipv4Size || bytes[0] >> 4U != 4) {
        return false;
    }
    const std::size_t length = (bytes[0] & 0x0fU) * std::size_t{4};
    const std::size_t told = u16(bytes, 2);
    const std::size_t totalLength = told != 0 ? told : bytes.size();
    if (length < ipv4Size || length > bytes.size() || length > totalLength) {
        return false;
    }
    const bool firstFragment = (u16(bytes, 6) & 0x1fffU) == 0;
    const bool udp = bytes[9] == udpNumber && firstFragment && totalLength - length >= udpSize;
    found = {length, udp ? PktHdrType::udp : PktHdrType::none};
    return true;
}

/// The length of an IPv6 extension header (RFC 8200 section 4), or nothing for an upper layer or
/// one that cannot be passed. `bytes` starts at the extension header.
std::optional<std::size_t> extensionLength(std::uint8_t protocol, Bytes bytes) noexcept {
    constexpr std::uint8_t hopByHop = 0;
    constexpr std::uint8_t routing = 43;
    constexpr std::uint8_t fragment = 44;
    constexpr std::uint8_t authentication = 51;
    constexpr std::uint8_t destinationOptions = 60;
    constexpr std::size_t unit = 8;
    if (bytes.size() < unit) {
        return std::nullopt;
    }
    switch (protocol) {
    case hopByHop:
    case routing:
    case destinationOptions:
        return (bytes[1] + std::size_t{1}) * unit;
    case fragment:
        return (u16(bytes, 2) & 0xfff8U) == 0 ? std::optional<std::size_t>(unit) : std::nullopt;
    case authentication:
        return (bytes[1] + std::size_t{2}) * 4;
    default:
        return std::nullopt;
    }
}

/// The header's length covers its extension headers, so that the upper layer is what follows. A
/// payload length of 0 stands for a jumbogram (RFC 2675).
bool parseIpv6(Bytes bytes, Found& found) {
    if (bytes.size() < ipv6Size || bytes[0] >> 4U != 6) {
        return false;
    }
    std::size_t length = ipv6Size;
    std::uint8_t protocol = bytes[6];
    while (const auto extension = extensionLength(protocol, bytes.subspan(length))) {
        if (*extension > bytes.size() - length) {
            break;
        }
        protocol = bytes[length];
        length += *extension;
    }
    const std::size_t payloadLength = u16(bytes, 4);
    const bool udp = protocol == udpNumber &&
                     (payloadLength == 0 || ipv6Size + payloadLength >= length + udpSize);
    found = {length, udp ? PktHdrType::udp : PktHdrType::none};
    return true;
}

bool parseUdp(Bytes bytes, Found& found) {
    if (bytes.size() < udpSize) {
        return false;
    }
    found = {udpSize, PktHdrType::none};
    return true;
}

bool parseHeader(const Ptr<Lumo::Pkt>& pkt, PktHdrType type, std::size_t offset, Found& found,
                 Ptr<PacketHeaderData>& data) {
    const Bytes bytes = pkt->offsetFront(offset);
    switch (type) {
    case PktHdrType::eth:
        return parseEth(bytes, found);
    case PktHdrType::vlanTags:
        return parseTags(bytes, u16(pkt->data(), offset - 2), found, data);
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
