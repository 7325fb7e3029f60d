#include "Answers/LspEcho.h"

#include <cassert>

#include "Wire/Ip.h"
#include "Wire/LspEcho.h"
#include "Wire/Transport.h"

namespace OvixAgent {

namespace {

using Wire::LspEcho;
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

/// Its UDP datagram; empty when that is damaged.
Wire::Bytes echoDatagram(const IpPacket& packet) {
    assert(isMplsEcho(packet));
    const Wire::Bytes bytes = packet.upperLayer()->bytes;
    const std::size_t length = Udp(bytes).length();
    if (length < Udp::size || length > bytes.size()) {
        return {};
    }
    const Wire::Bytes datagram = bytes.first(length);
    return isChecksumValid(packet, datagram) ? datagram : Wire::Bytes();
}

bool ttlExpired(const LabelledPacket& received) noexcept {
    const std::uint8_t ttl = received.labels.empty()
                                 ? received.ip.ttl()
                                 : Lumo::MplsLabelEntry::load(received.labels.data()).ttl();
    return ttl <= 1;
}

EchoSilence silenceAbout(const LspEchoRequest& request, const LabelledPacket& received) {
    if (request.replyMode == LspEcho::doNotReply) {
        return EchoSilence::noReplyWanted;
    }
    if (request.onlyIfTtlExpired && !ttlExpired(received)) {
        return EchoSilence::ttlNotExpired;
    }
    const IpScope scope = ipScope(received.ip.source());
    return scope == IpScope::global || scope == IpScope::linkLocal ? EchoSilence::none
                                                                   : EchoSilence::sourceNotAHost;
}

std::vector<std::uint8_t> replyDatagram(std::uint16_t destinationPort, Wire::Bytes reply) {
    std::vector<std::uint8_t> datagram(Udp::size);
    const Wire::UdpWriter header{std::span(datagram)};
    header.portsAre(Wire::lspEchoPort, destinationPort);
    header.lengthIs(Udp::size + reply.size());
    datagram.insert(datagram.end(), reply.begin(), reply.end());
    return datagram;
}

/// The reply to a request that wants one.
EchoAnswer replyTo(const LspEchoRequest& request, const EchoArrival& arrival,
                   const EchoVerdict& verdict, const CaptureTime& time, const IpPacket& packet,
                   std::uint16_t port) {
    const std::vector<std::uint8_t> reply =
        echoReplyBytes(request, verdict, arrival, ntpTime(time));
    if (reply.size() > longestReply) {
        return {{}, EchoSilence::tooLong};
    }
    const bool hasRouterAlert = request.replyMode == LspEcho::byUdpWithRouterAlert;
    return {ipPacketBytes({arrival.interface, packet.source(), Wire::IpProtocol::udp,
                           request.replyTos.value_or(0), hasRouterAlert},
                          replyDatagram(port, reply), Udp::checksumAt)};
}

} // namespace

EchoAnswer lspEchoReply(const LabelledPacket& received, PortIndex port, const CaptureTime& time,
                        const EchoTables& tables, const OwnAddresses& own) {
    const Wire::Bytes datagram = echoDatagram(received.ip);
    if (datagram.empty()) {
        return {{}, EchoSilence::damaged};
    }
    std::optional<LspEchoRequest> request = LspEchoRequest::read(datagram.subspan(Udp::size));
    if (!request) {
        return {{}, EchoSilence::notARequest};
    }
    if (const EchoSilence silence = silenceAbout(*request, received);
        silence != EchoSilence::none) {
        return {{}, silence};
    }
    const std::uint16_t sourcePort = Udp(datagram).sourcePort();
    const Lumo::IpGenAddr& source = own.of(received.ip.type);
    if (sourcePort == 0 || source.empty()) {
        return {{}, sourcePort == 0 ? EchoSilence::noSourcePort : EchoSilence::noOwnAddress};
    }
    // An unknown reply mode makes the request malformed (RFC 7110).
    if (request->replyMode != LspEcho::byUdp &&
        request->replyMode != LspEcho::byUdpWithRouterAlert) {
        request->fault = LspEchoRequest::Fault::malformed;
    }
    const EchoVerdict verdict = validateEcho(*request, port, labelEntries(received.labels), tables);
    return replyTo(*request, {source, received.labels}, verdict, time, received.ip, sourcePort);
}

std::uint64_t ntpTime(const CaptureTime& time) noexcept {
    constexpr std::uint64_t from1900To1970 = 2'208'988'800;
    constexpr std::uint64_t second = 1'000'000'000;
    const std::uint64_t seconds = static_cast<std::uint64_t>(time.seconds) + from1900To1970;
    return seconds << 32U | (std::uint64_t{time.nanoseconds} << 32U) / second;
}

} // namespace OvixAgent
