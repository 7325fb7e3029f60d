#include "Answers/LspEchoMessage.h"

#include <algorithm>

#include "Wire/LspEcho.h"

namespace OvixAgent {

namespace {

using Fault = LspEchoRequest::Fault;
using Wire::LspEchoTlv;

void append(std::vector<std::uint8_t>& to, Wire::Bytes bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

/// Unknown types of TLVs and sub-TLVs are mandatory or optional by their number.
Fault unknown(std::uint16_t type) noexcept {
    return type < LspEchoTlv::firstOptional ? Fault::notUnderstood : Fault::none;
}

/// Empty when the value is malformed.
std::optional<EchoFec> ldpPrefix(Wire::Bytes value, Lumo::IpFamily family) noexcept {
    const bool isIpv4 = family == Lumo::IpFamily::ipv4;
    const std::size_t size = isIpv4 ? Lumo::IpGenAddr::ipv4Size : Lumo::IpGenAddr::ipv6Size;
    if (value.size() != size + 1 || value[size] > size * 8) {
        return std::nullopt;
    }
    return EchoFec{isIpv4 ? Lumo::IpGenAddr::ipv4(value.data())
                          : Lumo::IpGenAddr::ipv6(value.data()),
                   value[size]};
}

std::optional<EchoFec> nilFec(Wire::Bytes value) noexcept {
    constexpr std::size_t size = 4;
    return value.size() == size ? std::optional(EchoFec{}) : std::nullopt;
}

Fault takeFec(std::vector<EchoFec>& fecs, const LspEchoTlv& tlv) {
    std::optional<EchoFec> fec;
    switch (tlv.type) {
    case LspEchoTlv::ldpIpv4Prefix:
        fec = ldpPrefix(tlv.value, Lumo::IpFamily::ipv4);
        break;
    case LspEchoTlv::ldpIpv6Prefix:
        fec = ldpPrefix(tlv.value, Lumo::IpFamily::ipv6);
        break;
    case LspEchoTlv::nilFec:
        fec = nilFec(tlv.value);
        break;
    default:
        return unknown(tlv.type);
    }
    if (!fec) {
        return Fault::malformed;
    }
    fecs.push_back(*fec);
    return Fault::none;
}

/// A request has exactly one target FEC stack, which is not empty.
Fault takeFecStack(LspEchoRequest& request, Wire::Bytes value) {
    if (!request.fecs.empty() || value.empty()) {
        return Fault::malformed;
    }
    Fault worst = Fault::none;
    LspEchoTlv tlv;
    while (!value.empty()) {
        const Fault fault =
            LspEchoTlv::take(value, tlv) ? takeFec(request.fecs, tlv) : Fault::malformed;
        if (fault == Fault::malformed) {
            return fault;
        }
        worst = fault != Fault::none ? fault : worst;
    }
    return worst;
}

/// The first octet of the value says whether the TLV is returned (RFC 8029 section 3.5).
Fault takePad(LspEchoRequest& request, const LspEchoTlv& tlv) {
    constexpr std::uint8_t copyToReply = 2;
    if (tlv.value.empty()) {
        return Fault::malformed;
    }
    if (tlv.value[0] == copyToReply) {
        append(request.pads, tlv.whole);
    }
    return Fault::none;
}

Fault takeReplyTos(LspEchoRequest& request, Wire::Bytes value) {
    constexpr std::size_t size = 4;
    if (value.size() != size) {
        return Fault::malformed;
    }
    request.replyTos = value[0];
    return Fault::none;
}

Fault takeDownstreamMapping(LspEchoRequest& request, Wire::Bytes value) {
    Wire::Bytes subTlvs;
    if (!Wire::LspEchoDownstream::subTlvs(value, subTlvs)) {
        return Fault::malformed;
    }
    LspEchoTlv tlv;
    while (!subTlvs.empty()) {
        if (!LspEchoTlv::take(subTlvs, tlv)) {
            return Fault::malformed;
        }
    }
    request.wantsDownstreams = true;
    return Fault::none;
}

Fault takeTlv(LspEchoRequest& request, const LspEchoTlv& tlv) {
    switch (tlv.type) {
    case LspEchoTlv::targetFecStack:
        return takeFecStack(request, tlv.value);
    case LspEchoTlv::pad:
        return takePad(request, tlv);
    case LspEchoTlv::replyTosByte:
        return takeReplyTos(request, tlv.value);
    case LspEchoTlv::downstreamDetailedMapping:
        return takeDownstreamMapping(request, tlv.value);
    default:
        return unknown(tlv.type);
    }
}

Fault takeTlvs(LspEchoRequest& request, Wire::Bytes bytes) {
    LspEchoTlv tlv;
    while (!bytes.empty()) {
        const Fault fault = LspEchoTlv::take(bytes, tlv) ? takeTlv(request, tlv) : Fault::malformed;
        if (fault == Fault::malformed) {
            return fault;
        }
        if (fault == Fault::notUnderstood) {
            append(request.notUnderstood, tlv.whole);
        }
    }
    if (!request.notUnderstood.empty()) {
        return Fault::notUnderstood;
    }
    return request.fecs.empty() ? Fault::malformed : Fault::none;
}

/// Downstream labels: label, TC, bottom of stack, and the protocol that distributed the label,
/// which the tables do not hold.
std::vector<std::uint8_t> labelBytes(const std::vector<Lumo::MplsLabel>& labels) {
    constexpr std::uint8_t unknownProtocol = 0;
    std::vector<std::uint8_t> bytes(labels.size() * Lumo::MplsLabelEntry::size);
    for (std::size_t i = 0; i < labels.size(); ++i) {
        const bool isLast = i + 1 == labels.size();
        Lumo::MplsLabelEntry(labels[i], 0, isLast, unknownProtocol)
            .store(bytes.data() + i * Lumo::MplsLabelEntry::size);
    }
    return bytes;
}

void addDownstream(std::vector<std::uint8_t>& reply, const EchoDownstream& downstream,
                   std::uint8_t depth) {
    using namespace Wire::LspEchoDownstream;
    const bool isIpv4 = downstream.nexthop.family() == Lumo::IpFamily::ipv4;
    const Wire::Bytes address(downstream.nexthop.bytes().data(),
                              isIpv4 ? Lumo::IpGenAddr::ipv4Size : Lumo::IpGenAddr::ipv6Size);
    std::vector<std::uint8_t> subTlvs;
    LspEchoTlv::add(subTlvs, LspEchoTlv::downstreamLabelStack, labelBytes(downstream.labels));

    std::vector<std::uint8_t> value{0, 0, isIpv4 ? ipv4Numbered : ipv6Numbered, 0};
    Lumo::NetU16(downstream.mtu).store(value.data());
    append(value, address); // of the router
    append(value, address); // of its interface
    value.insert(value.end(), {static_cast<std::uint8_t>(EchoReturnCode::switched), depth, 0, 0});
    Lumo::NetU16(static_cast<std::uint16_t>(subTlvs.size())).store(&value.end()[-2]);
    append(value, subTlvs);
    LspEchoTlv::add(reply, LspEchoTlv::downstreamDetailedMapping, value);
}

} // namespace

std::optional<LspEchoRequest> LspEchoRequest::read(std::span<const std::uint8_t> payload) {
    const Wire::LspEcho header(payload);
    if (!header || header.type() != Wire::LspEcho::request) {
        return std::nullopt;
    }
    LspEchoRequest request;
    request.replyMode = header.replyMode();
    request.validatesFecs = (header.flags() & Wire::LspEcho::validateFecStack) != 0;
    request.onlyIfTtlExpired = (header.flags() & Wire::LspEcho::replyOnlyIfTtlExpired) != 0;
    request.returned = header.returned();
    request.fault = header.version() == Wire::LspEcho::currentVersion
                        ? takeTlvs(request, payload.subspan(Wire::LspEcho::size))
                        : Fault::malformed;
    return request;
}

std::vector<std::uint8_t> echoReplyBytes(const LspEchoRequest& request, const EchoVerdict& verdict,
                                         std::uint64_t received) {
    std::vector<std::uint8_t> reply(Wire::LspEcho::size);
    const Wire::LspEchoWriter header{std::span(reply)};
    // With downstreams, each mapping has a return code of its own.
    const bool hasDownstreams = request.wantsDownstreams && !verdict.downstreams.empty();
    const EchoReturnCode code = hasDownstreams ? EchoReturnCode::inDownstreamMapping : verdict.code;
    header.messageIs(Wire::LspEchoWriter::reply, request.replyMode);
    header.returnCodeIs(static_cast<std::uint8_t>(code), hasDownstreams ? 0 : verdict.depth);
    std::copy(request.returned.begin(), request.returned.end(), header.returned().begin());
    header.timeReceivedIs(received);
    if (verdict.code == EchoReturnCode::tlvNotUnderstood) {
        LspEchoTlv::add(reply, LspEchoTlv::erroredTlvs, request.notUnderstood);
    }
    if (hasDownstreams) {
        for (const EchoDownstream& downstream : verdict.downstreams) {
            addDownstream(reply, downstream, verdict.depth);
        }
    }
    append(reply, request.pads);
    return reply;
}

} // namespace OvixAgent
