#include "Answers/LspEcho.h"

#include <cassert>

#include "Wire/Ip.h"
#include "Wire/LspEcho.h"
#include "Wire/Transport.h"

namespace OvixAgent {

namespace {

using Wire::Udp;

/// The largest reply that fits behind the longest IP header.
constexpr std::size_t longestReply = 65535 - 48 - Udp::size;

/// Only in IPv4 may the checksum be absent (RFC 768, RFC 8200 section 8.1).
bool isChecksumValid(const IpPacket& packet, Wire::Bytes datagram) {
    assert(datagram.size() >= Udp::size);
    if (Udp(datagram).checksum() == 0) {
        return packet.type == Ovix::PktHdrType::ipv4;
    }
    const std::uint16_t pseudoHeader = Wire::pseudoHeaderSum(
        packet.source(), packet.destination(), Wire::IpProtocol::udp, datagram.size());
    return Wire::addSums(pseudoHeader, Wire::onesSum(datagram)) == 0xffff;
}

/// The UDP datagram of an echo request or reply; empty for any other packet.
Wire::Bytes echoDatagram(const LabelledPacket& received) {
    if (!isMplsEcho(received.ip)) {
        return {};
    }
    const std::optional<IpUpperLayer> upper = received.ip.upperLayer();
    const Udp header(upper->bytes);
    if (header.length() < Udp::size || header.length() > upper->bytes.size()) {
        return {};
    }
    const Wire::Bytes datagram = upper->bytes.first(header.length());
    return isChecksumValid(received.ip, datagram) ? datagram : Wire::Bytes();
}

bool ttlExpired(const LabelledPacket& received) noexcept {
    const std::uint8_t ttl = received.labels.empty()
                                 ? received.ip.ttl()
                                 : Lumo::MplsLabelEntry::load(received.labels.data()).ttl();
    return ttl <= 1;
}

bool wantsReply(const LspEchoRequest& request, const LabelledPacket& received) {
    const IpScope scope = ipScope(received.ip.source());
    return request.replyMode != Wire::LspEcho::doNotReply &&
           (!request.onlyIfTtlExpired || ttlExpired(received)) &&
           (scope == IpScope::global || scope == IpScope::linkLocal);
}

std::vector<std::uint8_t> replyDatagram(std::uint16_t destinationPort, Wire::Bytes reply) {
    std::vector<std::uint8_t> datagram(Udp::size);
    const Wire::UdpWriter header{std::span(datagram)};
    header.portsAre(Wire::lspEchoPort, destinationPort);
    header.lengthIs(Udp::size + reply.size());
    datagram.insert(datagram.end(), reply.begin(), reply.end());
    return datagram;
}

} // namespace

bool isLspEcho(const LabelledPacket& received) {
    return !echoDatagram(received).empty();
}

std::vector<std::uint8_t> lspEchoReply(const LabelledPacket& received, const CaptureTime& time,
                                       const EchoTables& tables, const OwnAddresses& own) {
    using Wire::LspEcho;
    const Wire::Bytes datagram = echoDatagram(received);
    const Lumo::IpGenAddr& source = own.of(received.ip.type);
    if (datagram.empty() || Udp(datagram).sourcePort() == 0 || source.empty()) {
        return {};
    }
    std::optional<LspEchoRequest> request = LspEchoRequest::read(datagram.subspan(Udp::size));
    if (!request || !wantsReply(*request, received)) {
        return {};
    }
    const bool hasRouterAlert = request->replyMode == LspEcho::byUdpWithRouterAlert;
    // An unknown reply mode makes the request malformed (RFC 7110).
    if (request->replyMode != LspEcho::byUdp && !hasRouterAlert) {
        request->fault = LspEchoRequest::Fault::malformed;
    }
    const EchoVerdict verdict = validateEcho(*request, labelEntries(received.labels), tables);
    const std::vector<std::uint8_t> reply = echoReplyBytes(*request, verdict, ntpTime(time));
    if (reply.size() > longestReply) {
        return {};
    }
    return ipPacketBytes({source, received.ip.source(), Wire::IpProtocol::udp,
                          request->replyTos.value_or(0), hasRouterAlert},
                         replyDatagram(Udp(datagram).sourcePort(), reply), Udp::checksumAt);
}

std::uint64_t ntpTime(const CaptureTime& time) noexcept {
    constexpr std::uint64_t from1900To1970 = 2'208'988'800;
    constexpr std::uint64_t second = 1'000'000'000;
    const std::uint64_t seconds = static_cast<std::uint64_t>(time.seconds) + from1900To1970;
    return seconds << 32U | (std::uint64_t{time.nanoseconds} << 32U) / second;
}

} // namespace OvixAgent
