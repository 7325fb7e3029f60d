#include "Answers/LspEchoRequest.h"

#include <array>

#include "Answers/LspEchoTlv.h"

namespace OvixAgent {

namespace {

using Bytes = std::span<const std::uint8_t>;
using Fault = LspEchoRequest::Fault;

void append(std::vector<std::uint8_t>& to, Bytes bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

/// Empty when the value does not suit the type.
std::optional<EchoFec> ldpPrefix(Bytes value, Lumo::IpFamily family) noexcept {
    const bool isIpv4 = family == Lumo::IpFamily::ipv4;
    const std::size_t size = isIpv4 ? Lumo::IpGenAddr::ipv4Size : Lumo::IpGenAddr::ipv6Size;
    if (value.size() != size + 1 || value[size] > size * 8) {
        return std::nullopt;
    }
    return EchoFec{isIpv4 ? Lumo::IpGenAddr::ipv4(value.data())
                          : Lumo::IpGenAddr::ipv6(value.data()),
                   value[size]};
}

std::optional<EchoFec> nilFec(Bytes value) noexcept {
    constexpr std::size_t size = 4;
    return value.size() == size ? std::optional(EchoFec{}) : std::nullopt;
}

/// Adds the FEC of a sub-TLV (RFC 8029 section 3.2).
Fault takeFec(std::vector<EchoFec>& fecs, const LspEchoTlv& tlv) {
    constexpr std::uint16_t ldpIpv4Prefix = 1;
    constexpr std::uint16_t ldpIpv6Prefix = 2;
    constexpr std::uint16_t nil = 16;
    std::optional<EchoFec> fec;
    if (tlv.type == ldpIpv4Prefix) {
        fec = ldpPrefix(tlv.value, Lumo::IpFamily::ipv4);
    } else if (tlv.type == ldpIpv6Prefix) {
        fec = ldpPrefix(tlv.value, Lumo::IpFamily::ipv6);
    } else if (tlv.type == nil) {
        fec = nilFec(tlv.value);
    } else {
        return tlv.type < LspEchoTlv::firstOptional ? Fault::notUnderstood : Fault::none;
    }
    if (!fec) {
        return Fault::malformed;
    }
    fecs.push_back(*fec);
    return Fault::none;
}

/// A request has one target FEC stack, and that is not empty.
Fault takeFecStack(LspEchoRequest& request, Bytes value) {
    if (!request.fecs.empty() || value.empty()) {
        return Fault::malformed;
    }
    Fault worst = Fault::none;
    while (!value.empty()) {
        const std::optional<LspEchoTlv> tlv = LspEchoTlv::take(value);
        const Fault fault = tlv ? takeFec(request.fecs, *tlv) : Fault::malformed;
        if (fault == Fault::malformed) {
            return fault;
        }
        worst = fault != Fault::none ? fault : worst;
    }
    return worst;
}

/// The first octet says what to do with it (RFC 8029 section 3.5).
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

Fault takeReplyTos(LspEchoRequest& request, Bytes value) {
    constexpr std::size_t size = 4;
    if (value.size() != size) {
        return Fault::malformed;
    }
    request.replyTos = value[0];
    return Fault::none;
}

/// MTU, address type, flags, two addresses, return code and subcode, and sub-TLVs with their length
/// in front (RFC 8029 section 3.4).
Fault takeDownstreamMapping(LspEchoRequest& request, Bytes value) {
    constexpr std::array<std::size_t, 6> addressSizes{0, 8, 8, 32, 20, 0}; // by address type
    const std::size_t type = value.size() > 2 ? value[2] : 0;
    const std::size_t addresses = type < addressSizes.size() ? addressSizes[type] : 0;
    const std::size_t size = 8 + addresses;
    if (type == 0 || type >= addressSizes.size() || value.size() < size ||
        Lumo::NetU16::load(value.data() + size - 2).value() != value.size() - size) {
        return Fault::malformed;
    }
    Bytes rest = value.subspan(size);
    while (!rest.empty()) {
        if (!LspEchoTlv::take(rest)) {
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
        return tlv.type < LspEchoTlv::firstOptional ? Fault::notUnderstood : Fault::none;
    }
}

Fault takeTlvs(LspEchoRequest& request, Bytes bytes) {
    while (!bytes.empty()) {
        const std::optional<LspEchoTlv> tlv = LspEchoTlv::take(bytes);
        const Fault fault = tlv ? takeTlv(request, *tlv) : Fault::malformed;
        if (fault == Fault::malformed) {
            return fault;
        }
        if (fault == Fault::notUnderstood) {
            append(request.notUnderstood, tlv->whole);
        }
    }
    if (!request.notUnderstood.empty()) {
        return Fault::notUnderstood;
    }
    return request.fecs.empty() ? Fault::malformed : Fault::none;
}

} // namespace

std::optional<LspEchoRequest> LspEchoRequest::read(std::span<const std::uint8_t> payload) {
    constexpr std::size_t typeAt = 4;
    constexpr std::uint8_t echoRequest = 1;
    constexpr std::uint16_t version = 1;
    constexpr std::size_t returnedAt = 8;
    constexpr std::size_t returnedSize = 16;
    if (payload.size() < headerSize || payload[typeAt] != echoRequest) {
        return std::nullopt;
    }
    LspEchoRequest request;
    request.replyMode = payload[typeAt + 1];
    request.validatesFecs = (payload[3] & 1U) != 0;
    request.onlyIfTtlExpired = (payload[3] & 2U) != 0;
    request.returned = payload.subspan(returnedAt, returnedSize);
    request.fault = Lumo::NetU16::load(payload.data()).value() == version
                        ? takeTlvs(request, payload.subspan(headerSize))
                        : Fault::malformed;
    return request;
}

} // namespace OvixAgent
