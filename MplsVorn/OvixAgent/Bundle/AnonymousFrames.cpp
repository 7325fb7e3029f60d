// Frames with other addresses, and without what may name any.

#include <algorithm>

#include "Bundle/Anonymise.h"
#include "Wire/Checksum.h"
#include "Wire/ControlWord.h"
#include "Wire/Ethernet.h"
#include "Wire/Icmp.h"
#include "Wire/Ip.h"
#include "Wire/LabelStack.h"
#include "Wire/Transport.h"

namespace OvixAgent {

namespace {

using Wire::WritableBytes;

constexpr int deepest = 4;            ///< packets in packets
constexpr std::uint8_t ipv4InIp = 4;  // RFC 2003
constexpr std::uint8_t ipv6InIp = 41; // RFC 2473

WritableBytes behind(WritableBytes bytes, std::size_t offset) {
    return bytes.subspan(std::min(offset, bytes.size()));
}

void erase(WritableBytes bytes) {
    std::fill(bytes.begin(), bytes.end(), std::uint8_t{0});
}

void replaceAddress(WritableBytes bytes, std::size_t at, const Lumo::IpGenAddr& address) {
    const std::size_t size = address.family() == Lumo::IpFamily::ipv4 ? 4 : 16;
    std::copy_n(address.bytes().begin(), size, bytes.begin() + static_cast<std::ptrdiff_t>(at));
}

/// Has a checksum follow the changes of what it covers, however little of that is here.
class Follower {
  public:
    Follower(WritableBytes covered, std::uint8_t* sum)
        : covered_(covered), before_(covered.begin(), covered.end()), sum_(sum) {}
    Follower(const Follower&) = delete;
    Follower& operator=(const Follower&) = delete;
    ~Follower() {
        for (std::size_t at = 0; sum_ != nullptr && at < before_.size(); at += 2) {
            const std::uint16_t before = word(before_, at);
            if (const std::uint16_t after = word(covered_, at);
                covered_.data() + at != sum_ && before != after) {
                const std::uint16_t held = Lumo::NetU16::load(sum_).value();
                Lumo::NetU16(Wire::updatedChecksum(held, before, after)).store(sum_);
            }
        }
    }

  private:
    static std::uint16_t word(Wire::Bytes bytes, std::size_t at) {
        return static_cast<std::uint16_t>(bytes[at] << 8U |
                                          (at + 1 < bytes.size() ? bytes[at + 1] : 0));
    }

    WritableBytes covered_;
    std::vector<std::uint8_t> before_;
    std::uint8_t* sum_;
};

/// The checksum of the upper layer; null when there is none, or it is not in these bytes.
std::uint8_t* upperChecksum(WritableBytes packet, const Wire::UpperLayer& upper) {
    const std::size_t at = upper.protocol == Wire::IpProtocol::udp      ? Wire::Udp::checksumAt
                           : upper.protocol == Wire::IpProtocol::tcp    ? Wire::Tcp::checksumAt
                           : upper.protocol == Wire::IpProtocol::icmp   ? Wire::Icmp::checksumAt
                           : upper.protocol == Wire::IpProtocol::icmpv6 ? Wire::Icmp::checksumAt
                                                                        : packet.size();
    if (!upper.isFirstFragment || !upper.isWhole || upper.offset + at + 2 > packet.size()) {
        return nullptr;
    }
    std::uint8_t* const sum = packet.data() + upper.offset + at;
    const bool hasNone =
        upper.protocol == Wire::IpProtocol::udp && Lumo::NetU16::load(sum).value() == 0;
    return hasNone ? nullptr : sum;
}

void anonymisePacket(WritableBytes packet, const AddressMap& map, int depth);

/// What errors quote is a packet; of other messages nothing but their kind stays.
void anonymiseIcmp(WritableBytes message, bool isIcmpv6, const AddressMap& map, int depth) {
    const Wire::Icmp header{Wire::Bytes(message)};
    const bool isError = header && (isIcmpv6 ? header.type() < Wire::Icmpv6Type::firstInformational
                                             : Wire::IcmpType::isError(header.type()));
    const WritableBytes rest = behind(message, Wire::Icmp::size);
    if (!isError) {
        erase(rest);
        return;
    }
    if (!isIcmpv6 && header.type() == Wire::IcmpType::redirect) {
        replaceAddress(message, Wire::Icmp::valueAt,
                       map(Lumo::IpGenAddr::ipv4(message.data() + Wire::Icmp::valueAt)));
    }
    anonymisePacket(rest, map, depth);
}

void anonymiseUpper(WritableBytes upper, const Wire::UpperLayer& what, const AddressMap& map,
                    int depth) {
    namespace Protocol = Wire::IpProtocol;
    constexpr std::size_t tcpLengthAt = 12; // in its upper four bits, by 4 bytes
    const bool isHeader = what.isFirstFragment && what.isWhole;
    if (isHeader && (what.protocol == Protocol::icmp || what.protocol == Protocol::icmpv6)) {
        anonymiseIcmp(upper, what.protocol == Protocol::icmpv6, map, depth);
    } else if (isHeader && what.protocol == Protocol::udp) {
        erase(behind(upper, Wire::Udp::size));
    } else if (isHeader && what.protocol == Protocol::tcp && upper.size() > tcpLengthAt) {
        erase(behind(upper, (upper[tcpLengthAt] >> 4U) * std::size_t{4}));
    } else if (isHeader && (what.protocol == ipv4InIp || what.protocol == ipv6InIp)) {
        anonymisePacket(upper, map, depth);
    } else {
        erase(upper);
    }
}

void anonymisePacket(WritableBytes packet, const AddressMap& map, int depth) {
    const Wire::Ipv4 ipv4{Wire::Bytes(packet)};
    const Wire::Ipv6 ipv6{Wire::Bytes(packet)};
    if (depth > deepest || (!ipv4 && !ipv6)) {
        erase(packet);
        return;
    }
    const Wire::UpperLayer upper = ipv4 ? upperLayer(ipv4) : Wire::ipv6UpperLayer(packet);
    std::uint8_t* const sum = upperChecksum(packet, upper);
    const std::size_t sourceAt = ipv4 ? Wire::Ipv4::sourceAt : Wire::Ipv6::sourceAt;
    const std::size_t destinationAt = ipv4 ? Wire::Ipv4::destinationAt : Wire::Ipv6::destinationAt;
    const std::size_t size = ipv4 ? Wire::Ipv4::size : Wire::Ipv6::size;
    {
        // That of ICMP, unlike that of ICMPv6, does not cover the addresses.
        const WritableBytes addresses = packet.subspan(sourceAt, size - sourceAt);
        const bool isCovered = upper.protocol != Wire::IpProtocol::icmp;
        const Follower own(addresses, ipv4 ? packet.data() + Wire::Ipv4::checksumAt : nullptr);
        const Follower uppers(addresses, isCovered ? sum : nullptr);
        const auto source = map(ipv4 ? ipv4.source() : ipv6.source());
        const auto destination = map(ipv4 ? ipv4.destination() : ipv6.destination());
        replaceAddress(packet, sourceAt, source);
        replaceAddress(packet, destinationAt, destination);
    }
    const WritableBytes rest = behind(packet, std::max(upper.offset, size));
    const Follower uppers(rest, sum);
    anonymiseUpper(rest, upper, map, depth + 1);
}

/// Between Ethernet and IPv4, as all are (RFC 826).
void anonymiseArp(WritableBytes message, const AddressMap& map) {
    constexpr std::size_t size = 28;
    constexpr std::size_t senderAt = 14;
    constexpr std::size_t targetAt = 24;
    if (message.size() < size) {
        erase(message);
        return;
    }
    for (const std::size_t at : {senderAt, targetAt}) {
        replaceAddress(message, at, map(Lumo::IpGenAddr::ipv4(message.data() + at)));
    }
    erase(behind(message, size));
}

/// Beneath labels: a packet, or of a pseudowire a frame, behind a control word if it has one.
void anonymiseBeneathLabels(WritableBytes payload, const AddressMap& map) {
    const unsigned version = Wire::ipVersion(payload);
    const Wire::ControlWord word{Wire::Bytes(payload)};
    if (version == 4 || version == 6) {
        anonymisePacket(payload, map, 0);
    } else if (word && word.isAssociatedChannel()) {
        const WritableBytes message = behind(payload, Wire::ControlWord::size);
        const unsigned inner = Wire::ipVersion(message);
        inner == 4 || inner == 6 ? anonymisePacket(message, map, 0) : erase(message);
    } else {
        anonymiseFrame(behind(payload, word && word.isData() ? Wire::ControlWord::size : 0), map);
    }
}

} // namespace

void anonymiseFrame(std::span<std::uint8_t> frame, const AddressMap& map) {
    const Wire::Ethernet link{Wire::Bytes(frame)};
    if (!link) {
        return;
    }
    const std::size_t start = Wire::linkLength(frame);
    Wire::TagWalk tags(link.etherType(), Wire::Bytes(frame).subspan(Wire::Ethernet::size));
    for (Wire::Tag tag; tags.next(tag);) {
    }
    const WritableBytes payload = behind(frame, start);
    switch (tags.etherType()) {
    case Wire::EtherType::ipv4:
    case Wire::EtherType::ipv6:
        anonymisePacket(payload, map, 0);
        break;
    case Wire::EtherType::arp:
        anonymiseArp(payload, map);
        break;
    default:
        if (!Wire::EtherType::isMpls(tags.etherType())) {
            erase(payload);
            break;
        }
        Wire::LabelWalk walk{Wire::Bytes(payload)};
        for (Lumo::MplsLabelEntry entry; walk.next(entry);) {
        }
        anonymiseBeneathLabels(payload.last(walk.rest().size()), map);
    }
}

} // namespace OvixAgent
