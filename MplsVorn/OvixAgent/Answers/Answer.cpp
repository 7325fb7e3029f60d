#include "Answers/Answer.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <utility>

#include "State/LinkHeader.h"
#include "Wire/Ethernet.h"
#include "Wire/Ip.h"
#include "Wire/LabelStack.h"

namespace OvixAgent {

namespace {

/// Offsets in a frame.
struct Place {
    std::size_t labels = 0; ///< of the label stack, behind the link header
    std::size_t ip = 0;     ///< of the IP packet, behind the label stack
    Ovix::PktHdrType type = Ovix::PktHdrType::none;
};

Place find(std::span<const std::uint8_t> frame) {
    Ovix::PacketContext context(Lumo::globalPktManager()->newPkt(frame));
    Ovix::ParsedPacket& parsed = context.parsedPkt();
    const ReceivedLink link = readLink(parsed);
    Ptr<Ovix::PacketHeader> header = link.routed;
    if (!header) {
        return {};
    }
    const std::size_t labels = header->offset();
    if (header->pktHdrType() == Ovix::PktHdrType::mpls) {
        header = parsed.header(header->position() + 1);
    }
    return header ? Place{labels, header->offset(), header->pktHdrType()} : Place{};
}

constexpr std::uint8_t longestTtl = 255;

void writeIpv4Header(const IpHeaderFields& fields, Wire::WritableBytes bytes, std::size_t payload) {
    static constexpr std::array<std::uint8_t, 4> routerAlert{0x94, 4, 0, 0};
    const Wire::Ipv4Writer header(bytes);
    header.headerSizeIs(bytes.size());
    header.trafficClassIs(fields.trafficClass);
    header.totalLengthIs(bytes.size() + payload);
    header.fragmentIs(Wire::Ipv4::dontFragmentFlag);
    header.ttlIs(longestTtl);
    header.protocolIs(fields.protocol);
    header.sourceIs(fields.source);
    header.destinationIs(fields.destination);
    if (fields.routerAlert) {
        std::copy(routerAlert.begin(), routerAlert.end(), bytes.begin() + Wire::Ipv4::size);
    }
    Wire::completeChecksum(bytes, 0, Wire::Ipv4::checksumAt);
}

/// Router alert is an option in a hop-by-hop header, with value 69: MPLS OAM.
void writeIpv6Header(const IpHeaderFields& fields, Wire::WritableBytes bytes, std::size_t payload) {
    const std::array<std::uint8_t, 8> options{fields.protocol, 0, 5, 2, 0, 69, 1, 0};
    const Wire::Ipv6Writer header(bytes);
    header.flowIs(fields.trafficClass, 0);
    header.payloadLengthIs(bytes.size() - Wire::Ipv6::size + payload);
    header.nextHeaderIs(fields.routerAlert ? Wire::IpProtocol::hopByHop : fields.protocol);
    header.hopLimitIs(longestTtl);
    header.sourceIs(fields.source);
    header.destinationIs(fields.destination);
    if (fields.routerAlert) {
        std::copy(options.begin(), options.end(), bytes.begin() + Wire::Ipv6::size);
    }
}

std::uint16_t etherTypeOf(const Answer& answer) noexcept {
    if (!answer.labels.empty()) {
        return Wire::EtherType::mpls;
    }
    return Wire::ipVersion(answer.packet) == 4 ? Wire::EtherType::ipv4 : Wire::EtherType::ipv6;
}

} // namespace

std::optional<LabelledPacket> readLabelledPacket(std::span<const std::uint8_t> frame) {
    if (frame.size() > Lumo::Pkt::maxBytes) {
        return std::nullopt;
    }
    const Place place = find(frame);
    if (!isIp(place.type)) {
        return std::nullopt;
    }
    IpPacket ip{place.type, frame.subspan(place.ip)};
    if (!ip.fault(0).empty()) {
        return std::nullopt;
    }
    ip.bytes = ip.bytes.first(ip.length());
    constexpr std::size_t tagsAt = Wire::Ethernet::etherTypeAt;
    return LabelledPacket{frame.subspan(place.labels, place.ip - place.labels), ip,
                          Wire::Ethernet(frame).isToGroup(),
                          frame.subspan(tagsAt, place.labels - Wire::Ethernet::size)};
}

std::vector<Lumo::MplsLabelEntry> labelEntries(std::span<const std::uint8_t> labels) {
    assert(labels.size() % Lumo::MplsLabelEntry::size == 0);
    std::vector<Lumo::MplsLabelEntry> entries;
    Wire::LabelWalk walk(labels);
    for (Lumo::MplsLabelEntry entry; walk.next(entry);) {
        entries.push_back(entry);
    }
    return entries;
}

std::vector<std::uint8_t> ipPacketBytes(const IpHeaderFields& fields,
                                        std::span<const std::uint8_t> payload,
                                        std::size_t checksumAt) {
    assert(fields.source.family() == fields.destination.family());
    assert(checksumAt + sizeof(std::uint16_t) <= payload.size());
    constexpr std::size_t alertSize4 = 4;
    constexpr std::size_t alertSize6 = 8;
    const bool isIpv4 = fields.source.family() == Lumo::IpFamily::ipv4;
    const std::size_t headerSize = isIpv4
                                       ? Wire::Ipv4::size + (fields.routerAlert ? alertSize4 : 0)
                                       : Wire::Ipv6::size + (fields.routerAlert ? alertSize6 : 0);
    assert(headerSize + payload.size() <= 0xffff);
    std::vector<std::uint8_t> bytes(headerSize + payload.size());
    const Wire::WritableBytes header = std::span(bytes).first(headerSize);
    if (isIpv4) {
        writeIpv4Header(fields, header, payload.size());
    } else {
        writeIpv6Header(fields, header, payload.size());
    }
    std::copy(payload.begin(), payload.end(), bytes.data() + header.size());
    if (fields.protocol != Wire::IpProtocol::icmp) { // which covers no pseudo header (RFC 792)
        Lumo::NetU16(Wire::pseudoHeaderSum(fields.source, fields.destination, fields.protocol,
                                           payload.size()))
            .store(bytes.data() + headerSize + checksumAt);
    }
    Wire::completeChecksum(bytes, headerSize, checksumAt);
    return bytes;
}

std::vector<std::uint8_t> Answer::frame(const Lumo::EthAddr& station,
                                        std::span<const std::uint8_t> tags) const {
    assert(!packet.empty() && tags.size() % Wire::Tag::size == 0);
    std::vector<std::uint8_t> bytes(Wire::Ethernet::size);
    const Wire::EthernetWriter header{std::span(bytes)};
    header.macsAre(station, {});
    header.etherTypeIs(etherTypeOf(*this));
    bytes.insert(bytes.begin() + Wire::Ethernet::etherTypeAt, tags.begin(), tags.end());
    for (const Lumo::MplsLabelEntry& entry : labels) {
        bytes.resize(bytes.size() + Lumo::MplsLabelEntry::size);
        entry.store(&bytes.end()[-std::ptrdiff_t{Lumo::MplsLabelEntry::size}]);
    }
    bytes.insert(bytes.end(), packet.begin(), packet.end());
    return bytes;
}

std::optional<Answer> answerTo(const LabelledPacket& received, std::vector<std::uint8_t> packet,
                               const IsRoutable& isRoutable) {
    if (packet.empty()) {
        return std::nullopt;
    }
    Answer answer{std::move(packet), {}};
    if (isRoutable(received.ip.source())) {
        return answer;
    }
    for (const Lumo::MplsLabelEntry entry : labelEntries(received.labels)) {
        if (entry.label() != Lumo::routerAlert) {
            answer.labels.push_back(entry.withTtl(longestTtl));
        }
    }
    // Without the bottom of the stack, which was a router alert, the labels end at no packet.
    const bool hasBottom = !answer.labels.empty() && answer.labels.back().bos();
    return hasBottom ? std::optional(std::move(answer)) : std::nullopt;
}

} // namespace OvixAgent
