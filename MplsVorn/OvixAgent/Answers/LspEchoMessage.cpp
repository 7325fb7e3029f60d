#include "Answers/LspEchoMessage.h"

#include <array>

#include "Lumo/NetInt.h"

namespace OvixAgent {

namespace {

using Fault = LspEchoRequest::Fault;

constexpr std::size_t echoHeaderSize = 32;

/// A TLV or sub-TLV of an MPLS echo message (RFC 8029 section 3): type, length of the value, and
/// the value, filled up to whole words.
struct LspEchoTlv {
    static constexpr std::size_t headerSize = 4;

    // Types of TLVs.
    static constexpr std::uint16_t targetFecStack = 1;
    static constexpr std::uint16_t pad = 3;
    static constexpr std::uint16_t erroredTlvs = 9;
    static constexpr std::uint16_t replyTosByte = 10;
    static constexpr std::uint16_t downstreamDetailedMapping = 20;
    /// Types from here on may be ignored where they are not known.
    static constexpr std::uint16_t firstOptional = 0x8000;

    std::uint16_t type = 0;
    std::span<const std::uint8_t> value;
    std::span<const std::uint8_t> whole; ///< with its header and padding

    /// Takes the first TLV from `bytes`; empty when they do not hold a whole one.
    static std::optional<LspEchoTlv> take(std::span<const std::uint8_t>& bytes) noexcept {
        if (bytes.size() < headerSize) {
            return std::nullopt;
        }
        const std::size_t length = Lumo::NetU16::load(bytes.data() + 2).value();
        const std::size_t size = headerSize + (length + 3) / 4 * 4;
        if (size > bytes.size()) {
            return std::nullopt;
        }
        const LspEchoTlv tlv{Lumo::NetU16::load(bytes.data()).value(),
                             bytes.subspan(headerSize, length), bytes.first(size)};
        bytes = bytes.subspan(size);
        return tlv;
    }

    /// Adds a TLV with a value of whole words.
    static void add(std::vector<std::uint8_t>& bytes, std::uint16_t type,
                    std::span<const std::uint8_t> value) {
        const std::size_t at = bytes.size();
        bytes.resize(at + headerSize);
        Lumo::NetU16(type).store(bytes.data() + at);
        Lumo::NetU16(static_cast<std::uint16_t>(value.size())).store(bytes.data() + at + 2);
        bytes.insert(bytes.end(), value.begin(), value.end());
    }
};

void append(std::vector<std::uint8_t>& to, std::span<const std::uint8_t> bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

/// Empty when the value is invalid for the type.
std::optional<EchoFec> ldpPrefix(std::span<const std::uint8_t> value,
                                 Lumo::IpFamily family) noexcept {
    const bool isIpv4 = family == Lumo::IpFamily::ipv4;
    const std::size_t size = isIpv4 ? Lumo::IpGenAddr::ipv4Size : Lumo::IpGenAddr::ipv6Size;
    if (value.size() != size + 1 || value[size] > size * 8) {
        return std::nullopt;
    }
    return EchoFec{isIpv4 ? Lumo::IpGenAddr::ipv4(value.data())
                          : Lumo::IpGenAddr::ipv6(value.data()),
                   value[size]};
}

std::optional<EchoFec> nilFec(std::span<const std::uint8_t> value) noexcept {
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

/// A request has exactly one target FEC stack, which is not empty.
Fault takeFecStack(LspEchoRequest& request, std::span<const std::uint8_t> value) {
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

/// The first octet of the value says whether it is returned (RFC 8029 section 3.5).
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

Fault takeReplyTos(LspEchoRequest& request, std::span<const std::uint8_t> value) {
    constexpr std::size_t size = 4;
    if (value.size() != size) {
        return Fault::malformed;
    }
    request.replyTos = value[0];
    return Fault::none;
}

/// MTU, address type, flags, two addresses, return code and subcode, and sub-TLVs with their length
/// in front (RFC 8029 section 3.4).
Fault takeDownstreamMapping(LspEchoRequest& request, std::span<const std::uint8_t> value) {
    constexpr std::array<std::size_t, 6> addressSizes{0, 8, 8, 32, 20, 0}; // by address type
    const std::size_t type = value.size() > 2 ? value[2] : 0;
    const std::size_t addresses = type < addressSizes.size() ? addressSizes[type] : 0;
    const std::size_t size = 8 + addresses;
    if (type == 0 || type >= addressSizes.size() || value.size() < size ||
        Lumo::NetU16::load(value.data() + size - 2).value() != value.size() - size) {
        return Fault::malformed;
    }
    std::span<const std::uint8_t> rest = value.subspan(size);
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

Fault takeTlvs(LspEchoRequest& request, std::span<const std::uint8_t> bytes) {
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

constexpr std::size_t codeAt = 6;

/// Downstream labels: label, TC, bottom of stack, and the protocol that distributed the label,
/// which the tables do not hold.
std::vector<std::uint8_t> downstreamLabels(const std::vector<Lumo::MplsLabel>& labels) {
    constexpr std::uint8_t protocolUnknown = 0;
    std::vector<std::uint8_t> bytes(labels.size() * Lumo::MplsLabelEntry::size);
    for (std::size_t i = 0; i < labels.size(); ++i) {
        const bool isLast = i + 1 == labels.size();
        Lumo::MplsLabelEntry(labels[i], 0, isLast, protocolUnknown)
            .store(bytes.data() + i * Lumo::MplsLabelEntry::size);
    }
    return bytes;
}

void addDownstream(std::vector<std::uint8_t>& reply, const EchoDownstream& downstream,
                   std::uint8_t depth) {
    constexpr std::uint16_t labelStack = 2;
    const bool isIpv4 = downstream.nexthop.family() == Lumo::IpFamily::ipv4;
    const std::uint8_t numbered = isIpv4 ? 1 : 3;
    const std::size_t size = isIpv4 ? Lumo::IpGenAddr::ipv4Size : Lumo::IpGenAddr::ipv6Size;
    const auto& address = downstream.nexthop.bytes();
    std::vector<std::uint8_t> subTlvs;
    LspEchoTlv::add(subTlvs, labelStack, downstreamLabels(downstream.labels));

    std::vector<std::uint8_t> value{0, 0, numbered, 0};
    Lumo::NetU16(downstream.mtu).store(value.data());
    for (int i = 0; i < 2; ++i) { // one address for the router and for its interface
        value.insert(value.end(), address.begin(),
                     address.begin() + static_cast<std::ptrdiff_t>(size));
    }
    value.insert(value.end(), {static_cast<std::uint8_t>(EchoReturnCode::switched), depth,
                               static_cast<std::uint8_t>(subTlvs.size() >> 8U),
                               static_cast<std::uint8_t>(subTlvs.size())});
    value.insert(value.end(), subTlvs.begin(), subTlvs.end());
    LspEchoTlv::add(reply, LspEchoTlv::downstreamDetailedMapping, value);
}

/// Each mapping then holds a return code of its own.
void addDownstreams(std::vector<std::uint8_t>& reply, const EchoVerdict& verdict) {
    for (const EchoDownstream& downstream : verdict.downstreams) {
        addDownstream(reply, downstream, verdict.depth);
    }
    if (!verdict.downstreams.empty()) {
        reply[codeAt] = static_cast<std::uint8_t>(EchoReturnCode::inDownstreamMapping);
        reply[codeAt + 1] = 0;
    }
}

} // namespace

std::optional<LspEchoRequest> LspEchoRequest::read(std::span<const std::uint8_t> payload) {
    constexpr std::size_t typeAt = 4;
    constexpr std::uint8_t echoRequest = 1;
    constexpr std::uint16_t version = 1;
    constexpr std::size_t returnedAt = 8;
    constexpr std::size_t returnedSize = 16;
    if (payload.size() < echoHeaderSize || payload[typeAt] != echoRequest) {
        return std::nullopt;
    }
    LspEchoRequest request;
    request.replyMode = payload[typeAt + 1];
    request.validatesFecs = (payload[3] & 1U) != 0;
    request.onlyIfTtlExpired = (payload[3] & 2U) != 0;
    request.returned = payload.subspan(returnedAt, returnedSize);
    request.fault = Lumo::NetU16::load(payload.data()).value() == version
                        ? takeTlvs(request, payload.subspan(echoHeaderSize))
                        : Fault::malformed;
    return request;
}

std::vector<std::uint8_t> echoReplyBytes(const LspEchoRequest& request, const EchoVerdict& verdict,
                                         std::uint64_t received) {
    constexpr std::uint8_t version = 1;
    constexpr std::uint8_t echoReply = 2;
    std::vector<std::uint8_t> reply{0,
                                    version,
                                    0,
                                    0,
                                    echoReply,
                                    request.replyMode,
                                    static_cast<std::uint8_t>(verdict.code),
                                    verdict.depth};
    reply.insert(reply.end(), request.returned.begin(), request.returned.end());
    reply.resize(echoHeaderSize);
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
