#include "Answers/LspEcho.h"

#include <array>

#include "Answers/Answer.h"
#include "Answers/LspEchoMessage.h"
#include "Ip/InternetChecksum.h"
#include "Ip/IpPacket.h"
#include "Ip/IpScope.h"
#include "Lumo/NetInt.h"

namespace OvixAgent {

namespace {

constexpr std::uint16_t echoPort = 3503;
constexpr std::size_t udpSize = 8;
constexpr std::size_t udpChecksumAt = 6;
constexpr std::size_t longestReply = 65535 - 48 - udpSize; // behind the longest IP header
enum ReplyMode : std::uint8_t { doNotReply = 1, byUdp = 2, byUdpWithRouterAlert = 3 };

/// An echo request's UDP datagram; the bytes are its payload.
struct Datagram {
    std::uint16_t sourcePort = 0;
    std::span<const std::uint8_t> payload;
};

bool isLoopback(const Lumo::IpGenAddr& address) noexcept {
    static constexpr std::array<std::uint8_t, 16> mapped{0, 0, 0, 0,    0,    0,  0,
                                                         0, 0, 0, 0xff, 0xff, 127};
    static const Lumo::IpGenPrefix loopback4(Lumo::IpGenAddr::ipv4(mapped.data() + 12), 8);
    static const Lumo::IpGenPrefix mapped4(Lumo::IpGenAddr::ipv6(mapped.data()), 104);
    return loopback4.contains(address) || mapped4.contains(address);
}

/// No checksum is one in IPv4 only (RFC 768, RFC 8200 section 8.1).
bool checksumIsRight(const IpPacket& packet, std::span<const std::uint8_t> segment) {
    const std::uint16_t told = Lumo::NetU16::load(segment.data() + udpChecksumAt).value();
    if (told == 0) {
        return packet.type == Ovix::PktHdrType::ipv4;
    }
    std::vector<std::uint8_t> copy(segment.begin(), segment.end());
    Lumo::NetU16(
        pseudoHeaderSum(packet.source(), packet.destination(), IpProtocol::udp, segment.size()))
        .store(copy.data() + udpChecksumAt);
    completeChecksum(copy, 0, udpChecksumAt);
    return Lumo::NetU16::load(copy.data() + udpChecksumAt).value() == told;
}

std::optional<Datagram> readDatagram(const LabelledPacket& received) {
    const std::optional<IpUpperLayer> upper = upperLayer(received.ip);
    if (!upper || upper->protocol != IpProtocol::udp || upper->bytes.size() < udpSize ||
        !isLoopback(received.ip.destination())) {
        return std::nullopt;
    }
    const std::uint8_t* header = upper->bytes.data();
    const std::size_t length = Lumo::NetU16::load(header + 4).value();
    if (Lumo::NetU16::load(header + 2).value() != echoPort || length < udpSize ||
        length > upper->bytes.size() || !checksumIsRight(received.ip, upper->bytes.first(length))) {
        return std::nullopt;
    }
    return Datagram{Lumo::NetU16::load(header).value(),
                    upper->bytes.subspan(udpSize, length - udpSize)};
}

bool ttlExpired(const LabelledPacket& received) noexcept {
    const std::uint8_t ttl = received.labels.empty()
                                 ? received.ip.ttl()
                                 : Lumo::MplsLabelEntry::load(received.labels.data()).ttl();
    return ttl <= 1;
}

bool wantsReply(const LspEchoRequest& request, const LabelledPacket& received) {
    const IpScope scope = ipScope(received.ip.source());
    return request.replyMode != doNotReply && (!request.onlyIfTtlExpired || ttlExpired(received)) &&
           (scope == IpScope::global || scope == IpScope::linkLocal);
}

} // namespace

bool isLspEcho(const LabelledPacket& received) {
    return readDatagram(received).has_value();
}

std::vector<std::uint8_t> lspEchoReply(const LabelledPacket& received, const CaptureTime& time,
                                       const EchoTables& tables, const OwnAddresses& own) {
    const std::optional<Datagram> datagram = readDatagram(received);
    const Lumo::IpGenAddr& source = own.of(received.ip.type);
    if (!datagram || datagram->sourcePort == 0 || source.empty()) {
        return {};
    }
    std::optional<LspEchoRequest> request = LspEchoRequest::read(datagram->payload);
    if (!request || !wantsReply(*request, received)) {
        return {};
    }
    // A way to reply that is not known here makes the request malformed (RFC 7110).
    if (request->replyMode != byUdp && request->replyMode != byUdpWithRouterAlert) {
        request->fault = LspEchoRequest::Fault::malformed;
    }
    const EchoVerdict verdict = validateEcho(*request, labelEntries(received.labels), tables);
    const std::vector<std::uint8_t> reply = echoReplyBytes(*request, verdict, ntpTime(time));

    if (reply.size() > longestReply) {
        return {};
    }
    std::vector<std::uint8_t> segment(udpSize);
    Lumo::NetU16(echoPort).store(segment.data());
    Lumo::NetU16(datagram->sourcePort).store(segment.data() + 2);
    Lumo::NetU16(static_cast<std::uint16_t>(udpSize + reply.size())).store(segment.data() + 4);
    segment.insert(segment.end(), reply.begin(), reply.end());
    return ipPacketBytes({source, received.ip.source(), IpProtocol::udp,
                          request->replyTos.value_or(0),
                          request->replyMode == byUdpWithRouterAlert},
                         segment, udpChecksumAt);
}

std::uint64_t ntpTime(const CaptureTime& time) noexcept {
    constexpr std::uint64_t from1900To1970 = 2'208'988'800;
    constexpr std::uint64_t second = 1'000'000'000;
    const std::uint64_t seconds = static_cast<std::uint64_t>(time.seconds) + from1900To1970;
    return seconds << 32U | (std::uint64_t{time.nanoseconds} << 32U) / second;
}

} // namespace OvixAgent
