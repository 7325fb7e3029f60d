#include "Answers/Answer.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Ip/InternetChecksum.h"
#include "Lumo/NetInt.h"

namespace OvixAgent {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t answerTtl = 255;
constexpr std::array<std::uint8_t, 4> ipv4RouterAlert{0x94, 4, 0, 0};

void addU16(Bytes& bytes, std::size_t value) {
    bytes.push_back(static_cast<std::uint8_t>(value >> 8U));
    bytes.push_back(static_cast<std::uint8_t>(value));
}

void addAddress(Bytes& bytes, const Lumo::IpGenAddr& address) {
    const std::size_t size = address.family() == Lumo::IpFamily::ipv4 ? Lumo::IpGenAddr::ipv4Size
                                                                      : Lumo::IpGenAddr::ipv6Size;
    bytes.insert(bytes.end(), address.bytes().begin(),
                 address.bytes().begin() + static_cast<std::ptrdiff_t>(size));
}

/// RFC 791.
Bytes ipv4Header(const IpHeaderFields& fields, std::size_t payload) {
    constexpr std::size_t checksumAt = 10;
    constexpr std::uint16_t dontFragment = 0x4000;
    const std::size_t size = 20 + (fields.routerAlert ? ipv4RouterAlert.size() : 0);
    Bytes bytes{static_cast<std::uint8_t>(0x40U | size / 4), fields.trafficClass};
    addU16(bytes, size + payload);
    addU16(bytes, 0);
    addU16(bytes, dontFragment);
    bytes.insert(bytes.end(), {answerTtl, fields.protocol, 0, 0});
    addAddress(bytes, fields.source);
    addAddress(bytes, fields.destination);
    if (fields.routerAlert) {
        bytes.insert(bytes.end(), ipv4RouterAlert.begin(), ipv4RouterAlert.end());
    }
    completeChecksum(bytes, 0, checksumAt);
    return bytes;
}

/// RFC 8200; router alert is an option in a hop-by-hop header, with value 69: MPLS OAM.
Bytes ipv6Header(const IpHeaderFields& fields, std::size_t payload) {
    constexpr std::uint8_t hopByHop = 0;
    const Bytes options{fields.protocol, 0, 5, 2, 0, 69, 1, 0};
    const std::size_t extension = fields.routerAlert ? options.size() : 0;
    Bytes bytes{static_cast<std::uint8_t>(0x60U | fields.trafficClass >> 4U),
                static_cast<std::uint8_t>(fields.trafficClass << 4U), 0, 0};
    addU16(bytes, extension + payload);
    bytes.insert(bytes.end(), {fields.routerAlert ? hopByHop : fields.protocol, answerTtl});
    addAddress(bytes, fields.source);
    addAddress(bytes, fields.destination);
    bytes.insert(bytes.end(), options.begin(),
                 options.begin() + static_cast<std::ptrdiff_t>(extension));
    return bytes;
}

} // namespace

std::vector<std::uint8_t> ipPacketBytes(const IpHeaderFields& fields,
                                        std::span<const std::uint8_t> payload,
                                        std::size_t checksumAt) {
    Bytes bytes = fields.source.family() == Lumo::IpFamily::ipv4
                      ? ipv4Header(fields, payload.size())
                      : ipv6Header(fields, payload.size());
    const std::size_t start = bytes.size();
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    if (fields.protocol != IpProtocol::icmp) { // which covers no pseudo header (RFC 792)
        Lumo::NetU16(
            pseudoHeaderSum(fields.source, fields.destination, fields.protocol, payload.size()))
            .store(bytes.data() + start + checksumAt);
    }
    completeChecksum(bytes, start, checksumAt);
    return bytes;
}

std::uint16_t pseudoHeaderSum(const Lumo::IpGenAddr& source, const Lumo::IpGenAddr& destination,
                              std::uint8_t protocol, std::size_t length) noexcept {
    // What an IPv4 address leaves of its bytes is zero, and adds nothing.
    std::uint64_t sum = protocol + length;
    for (std::size_t at = 0; at < Lumo::IpGenAddr::ipv6Size; at += 2) {
        sum += Lumo::NetU16::load(source.bytes().data() + at).value();
        sum += Lumo::NetU16::load(destination.bytes().data() + at).value();
    }
    while (sum > 0xffff) {
        sum = (sum & 0xffffU) + (sum >> 16U);
    }
    return static_cast<std::uint16_t>(sum);
}

std::optional<Answer> answerTo(const LabelledPacket& received, std::vector<std::uint8_t> packet,
                               const IsRoutable& isRoutable) {
    constexpr std::uint8_t freshTtl = 255;
    if (packet.empty()) {
        return std::nullopt;
    }
    Answer answer{std::move(packet), {}};
    if (isRoutable(received.ip.source())) {
        return answer;
    }
    for (const Lumo::MplsLabelEntry entry : labelEntries(received.labels)) {
        if (entry.label() != Lumo::routerAlert) {
            answer.labels.push_back(entry.withTtl(freshTtl));
        }
    }
    // A router alert label at the bottom has nothing beneath it that leads anywhere.
    const bool leadsOn = !answer.labels.empty() && answer.labels.back().bos();
    return leadsOn ? std::optional(std::move(answer)) : std::nullopt;
}

} // namespace OvixAgent
