#include "Answers/LspEcho.h"

#include <algorithm>
#include <cassert>

#include "Wire/Ip.h"
#include "Wire/LspEcho.h"
#include "Wire/Transport.h"

namespace OvixAgent {

namespace {

using Wire::LspEcho;
using Wire::Udp;

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

/// How long the reply may be, its IP header included.
std::size_t longestReply(const LspEchoRequest& request, const EchoVerdict& verdict,
                         const LabelledPacket& received) {
    constexpr std::size_t longestWithMappings = 1500;
    const std::size_t asked = received.labels.size() + received.ip.bytes.size();
    return reportsDownstreams(request, verdict) ? std::max(asked, longestWithMappings) : asked;
}

EchoFinding findingOf(const LspEchoRequest& request, const EchoVerdict& verdict) {
    const bool isAboutFec = verdict.code == EchoReturnCode::egress ||
                            verdict.code == EchoReturnCode::noMapping ||
                            verdict.code == EchoReturnCode::mappingDiffers ||
                            verdict.code == EchoReturnCode::notOfInterface;
    EchoFinding finding{verdict.code, verdict.depth};
    if (isAboutFec && verdict.depth > 0 && verdict.depth <= request.fecs.size()) {
        finding.fec = request.fecs[request.fecs.size() - verdict.depth];
    }
    return finding;
}

/// The reply to a request that wants one.
EchoAnswer replyTo(const LspEchoRequest& request, const EchoVerdict& verdict,
                   const LabelledPacket& received, const Lumo::IpGenAddr& own,
                   const CaptureTime& time, std::size_t mtu) {
    const bool isIpv4 = received.ip.type == Ovix::PktHdrType::ipv4;
    const bool hasRouterAlert = request.replyMode == LspEcho::byUdpWithRouterAlert;
    const std::size_t headers = (isIpv4 ? Wire::Ipv4::size : Wire::Ipv6::size) + Udp::size;
    // The option of the IP header, and the label if the reply is sent along an LSP.
    const std::size_t alert = !hasRouterAlert ? 0 : (isIpv4 ? 4 : 8) + Lumo::MplsLabelEntry::size;
    if (headers + alert + LspEcho::size > mtu) {
        return {{}, EchoSilence::tooLong};
    }
    const std::size_t longest = std::min(longestReply(request, verdict, received), mtu - alert);
    const EchoReply reply = echoReply(request, verdict, {own, received.labels}, ntpTime(time),
                                      std::max(longest, headers) - headers);
    const std::uint16_t port = Udp(echoDatagram(received.ip)).sourcePort();
    return {ipPacketBytes({own, received.ip.source(), Wire::IpProtocol::udp,
                           request.replyTos.value_or(0), hasRouterAlert},
                          replyDatagram(port, reply.bytes), Udp::checksumAt),
            EchoSilence::none, findingOf(request, verdict), reply.leftOut, hasRouterAlert};
}

/// The MPLS echo message of a UDP datagram; empty when there is none.
Wire::LspEcho messageOf(const std::optional<IpUpperLayer>& upper) noexcept {
    const bool isUdp = upper && upper->protocol == Wire::IpProtocol::udp && Udp(upper->bytes);
    return LspEcho(isUdp ? upper->bytes.subspan(Udp::size) : Wire::Bytes());
}

} // namespace

std::string nameOf(EchoSilence why) {
    return std::string("LSP echo unanswered: ") + echoSilenceNames[static_cast<std::size_t>(why)];
}

EchoAnswer lspEchoReply(const LabelledPacket& received, PortIndex port, const CaptureTime& time,
                        const EchoTables& tables, const OwnAddresses& own, std::size_t mtu) {
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
    // A request for another way of replying lacks what that needs (RFC 7110 section 4.2), unless it
    // has a TLV that is not understood here.
    if (request->fault == LspEchoRequest::Fault::none && request->replyMode != LspEcho::byUdp &&
        request->replyMode != LspEcho::byUdpWithRouterAlert) {
        request->fault = LspEchoRequest::Fault::malformed;
    }
    const EchoVerdict verdict = validateEcho(*request, port, labelEntries(received.labels), tables);
    return replyTo(*request, verdict, received, source, time, mtu);
}

bool isEchoRequest(const IpPacket& packet) noexcept {
    const auto upper = packet.upperLayer();
    const LspEcho message = messageOf(upper);
    return message && message.type() == LspEcho::request &&
           Udp(upper->bytes).destinationPort() == Wire::lspEchoPort;
}

bool isEchoReply(const IpPacket& packet) noexcept {
    const auto upper = packet.upperLayer();
    const LspEcho message = messageOf(upper);
    return message && message.type() == LspEcho::reply &&
           Udp(upper->bytes).sourcePort() == Wire::lspEchoPort;
}

std::uint64_t ntpTime(const CaptureTime& time) noexcept {
    constexpr std::uint64_t from1900To1970 = 2'208'988'800;
    constexpr std::uint64_t second = 1'000'000'000;
    const std::uint64_t seconds = static_cast<std::uint64_t>(time.seconds) + from1900To1970;
    return seconds << 32U | (std::uint64_t{time.nanoseconds} << 32U) / second;
}

} // namespace OvixAgent
