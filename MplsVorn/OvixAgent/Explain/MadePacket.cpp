#include "Explain/MadePacket.h"

#include <algorithm>

#include "Wire/Checksum.h"
#include "Wire/LspEcho.h"
#include "Wire/Transport.h"

namespace OvixAgent {

namespace {

void addUdp(const MadePacket& fields, Wire::WritableBytes segment) {
    const Wire::UdpWriter udp(segment);
    udp.portsAre(fields.transport.source, fields.transport.destination);
    udp.lengthIs(segment.size());
    udp.checksumIs(Wire::pseudoHeaderSum(fields.source, fields.destination, Wire::IpProtocol::udp,
                                         segment.size()));
    Wire::completeChecksum(segment, 0, Wire::Udp::checksumAt);
}

void addTcp(const MadePacket& fields, Wire::WritableBytes segment) {
    Lumo::NetU16(fields.transport.source).store(segment.data());
    Lumo::NetU16(fields.transport.destination).store(segment.data() + 2);
    segment[Wire::Tcp::dataOffsetAt] = 5 << 4;
    segment[Wire::Tcp::flagsAt] = 0x10; // ACK
    const Wire::TcpWriter tcp(segment);
    tcp.checksumIs(Wire::pseudoHeaderSum(fields.source, fields.destination, Wire::IpProtocol::tcp,
                                         segment.size()));
    Wire::completeChecksum(segment, 0, Wire::Tcp::checksumAt);
}

void addIpHeader(const MadePacket& fields, Wire::WritableBytes packet) {
    if (!fields.isIpv4()) {
        const Wire::Ipv6Writer header(packet);
        header.flowIs(fields.trafficClass, 0);
        header.payloadLengthIs(packet.size() - Wire::Ipv6::size);
        header.nextHeaderIs(fields.transport.protocol);
        header.hopLimitIs(fields.ttl);
        header.sourceIs(fields.source);
        header.destinationIs(fields.destination);
        return;
    }
    const Wire::Ipv4Writer header(packet);
    header.headerSizeIs(Wire::Ipv4::size);
    header.trafficClassIs(fields.trafficClass);
    header.totalLengthIs(packet.size());
    header.fragmentIs(fields.dontFragment ? Wire::Ipv4::dontFragmentFlag : 0);
    header.ttlIs(fields.ttl);
    header.protocolIs(fields.transport.protocol);
    header.sourceIs(fields.source);
    header.destinationIs(fields.destination);
    Wire::completeChecksum(packet.first(Wire::Ipv4::size), 0, Wire::Ipv4::checksumAt);
}

} // namespace

std::vector<std::uint8_t> ipPacket(const MadePacket& fields) {
    const std::size_t upper = fields.transport.protocol == Wire::IpProtocol::udp   ? Wire::Udp::size
                              : fields.transport.protocol == Wire::IpProtocol::tcp ? Wire::Tcp::size
                                                                                   : 0;
    const std::size_t least = fields.headerSize() + upper + fields.payload.size();
    std::vector<std::uint8_t> packet(std::max(least, fields.size));
    std::copy(fields.payload.begin(), fields.payload.end(),
              packet.begin() + static_cast<std::ptrdiff_t>(fields.headerSize() + upper));
    addIpHeader(fields, packet);
    const Wire::WritableBytes segment = Wire::WritableBytes(packet).subspan(fields.headerSize());
    if (fields.transport.protocol == Wire::IpProtocol::udp) {
        addUdp(fields, segment);
    } else if (fields.transport.protocol == Wire::IpProtocol::tcp) {
        addTcp(fields, segment);
    }
    return packet;
}

std::vector<std::uint8_t> lspPing(const Lumo::IpGenPrefix& fec) {
    using Wire::LspEchoTlv;
    std::vector<std::uint8_t> message(Wire::LspEcho::size);
    Wire::LspEchoWriter(std::span(message))
        .messageIs(Wire::LspEchoWriter::request, Wire::LspEchoWriter::byUdp);
    const std::span<const std::uint8_t> address = fec.address().bytes();
    const bool isIpv4 = fec.address().family() == Lumo::IpFamily::ipv4;
    const std::size_t addressSize = isIpv4 ? 4 : 16;
    std::vector<std::uint8_t> element(LspEchoTlv::headerSize + addressSize +
                                      4); // the last: padding
    Lumo::NetU16(isIpv4 ? LspEchoTlv::ldpIpv4Prefix : LspEchoTlv::ldpIpv6Prefix)
        .store(element.data());
    Lumo::NetU16(static_cast<std::uint16_t>(addressSize + 1))
        .store(element.data() + LspEchoTlv::lengthAt);
    std::copy_n(address.begin(), addressSize, element.begin() + LspEchoTlv::headerSize);
    element[LspEchoTlv::headerSize + addressSize] = fec.length();
    LspEchoTlv::add(message, LspEchoTlv::targetFecStack, element);
    return message;
}

} // namespace OvixAgent
