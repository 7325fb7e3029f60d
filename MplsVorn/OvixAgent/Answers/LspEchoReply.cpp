#include "Answers/LspEchoReply.h"

#include "Answers/LspEchoTlv.h"

namespace OvixAgent {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t codeAt = 6;

/// A downstream label: 20 bits, TC, bottom of stack, and the protocol it comes from, which the
/// tables do not tell.
Bytes downstreamLabels(const std::vector<Lumo::MplsLabel>& labels) {
    constexpr std::uint8_t protocolUnknown = 0;
    Bytes bytes(labels.size() * Lumo::MplsLabelEntry::size);
    for (std::size_t i = 0; i < labels.size(); ++i) {
        const bool isLast = i + 1 == labels.size();
        Lumo::MplsLabelEntry(labels[i], 0, isLast, protocolUnknown)
            .store(bytes.data() + i * Lumo::MplsLabelEntry::size);
    }
    return bytes;
}

void addDownstream(Bytes& reply, const EchoDownstream& downstream, std::uint8_t depth) {
    constexpr std::uint16_t labelStack = 2;
    const bool isIpv4 = downstream.nexthop.family() == Lumo::IpFamily::ipv4;
    const std::uint8_t numbered = isIpv4 ? 1 : 3;
    const std::size_t size = isIpv4 ? Lumo::IpGenAddr::ipv4Size : Lumo::IpGenAddr::ipv6Size;
    const auto& address = downstream.nexthop.bytes();
    Bytes subTlvs;
    LspEchoTlv::add(subTlvs, labelStack, downstreamLabels(downstream.labels));

    Bytes value{0, 0, numbered, 0};
    Lumo::NetU16(downstream.mtu).store(value.data());
    for (int i = 0; i < 2; ++i) { // the router and its interface are known by one address
        value.insert(value.end(), address.begin(),
                     address.begin() + static_cast<std::ptrdiff_t>(size));
    }
    value.insert(value.end(), {static_cast<std::uint8_t>(EchoReturnCode::switched), depth,
                               static_cast<std::uint8_t>(subTlvs.size() >> 8U),
                               static_cast<std::uint8_t>(subTlvs.size())});
    value.insert(value.end(), subTlvs.begin(), subTlvs.end());
    LspEchoTlv::add(reply, LspEchoTlv::downstreamDetailedMapping, value);
}

/// The codes are then told in the mappings.
void addDownstreams(Bytes& reply, const EchoVerdict& verdict) {
    for (const EchoDownstream& downstream : verdict.downstreams) {
        addDownstream(reply, downstream, verdict.depth);
    }
    if (!verdict.downstreams.empty()) {
        reply[codeAt] = static_cast<std::uint8_t>(EchoReturnCode::inDownstreamMapping);
        reply[codeAt + 1] = 0;
    }
}

} // namespace

std::vector<std::uint8_t> echoReplyBytes(const LspEchoRequest& request, const EchoVerdict& verdict,
                                         std::uint64_t received) {
    constexpr std::uint8_t version = 1;
    constexpr std::uint8_t echoReply = 2;
    Bytes reply{0,
                version,
                0,
                0,
                echoReply,
                request.replyMode,
                static_cast<std::uint8_t>(verdict.code),
                verdict.depth};
    reply.insert(reply.end(), request.returned.begin(), request.returned.end());
    reply.resize(LspEchoRequest::headerSize);
    Lumo::NetU64(received).store(reply.data() + reply.size() - sizeof received);
    if (verdict.code == EchoReturnCode::tlvNotUnderstood) {
        LspEchoTlv::add(reply, LspEchoTlv::erroredTlvs, request.notUnderstood);
    }
    if (request.wantsDownstreams) {
        addDownstreams(reply, verdict);
    }
    reply.insert(reply.end(), request.pads.begin(), request.pads.end());
    return reply;
}

} // namespace OvixAgent
