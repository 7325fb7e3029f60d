#include "Answers/LspEchoRequest.h"

#include <algorithm>

#include "Wire/LspEcho.h"

namespace OvixAgent {

namespace {

using Fault = LspEchoRequest::Fault;
using Wire::LspEchoTlv;

void keepWhole(std::vector<std::uint8_t>& kept, const LspEchoTlv& tlv) {
    kept.insert(kept.end(), tlv.whole.begin(), tlv.whole.end());
}

/// Unknown types of TLVs and sub-TLVs are mandatory or optional by their number.
Fault unknown(std::uint16_t type) noexcept {
    return type < LspEchoTlv::firstOptional ? Fault::notUnderstood : Fault::none;
}

Lumo::IpGenAddr addressAt(const std::uint8_t* bytes, bool isIpv4) noexcept {
    return isIpv4 ? Lumo::IpGenAddr::ipv4(bytes) : Lumo::IpGenAddr::ipv6(bytes);
}

/// A prefix and its length, and behind it so many bytes that do not matter: the protocol of a
/// segment, since any may have advertised it here. Empty when the value is malformed.
std::optional<EchoFec> prefixFec(Wire::Bytes value, bool isIpv4, std::size_t behind) noexcept {
    const std::size_t size = isIpv4 ? Lumo::IpGenAddr::ipv4Size : Lumo::IpGenAddr::ipv6Size;
    if (value.size() != size + 1 + behind || value[size] > size * 8) {
        return std::nullopt;
    }
    return EchoFec{EchoFec::Kind::prefix, addressAt(value.data(), isIpv4), value[size]};
}

std::optional<EchoFec> nilFec(Wire::Bytes value) noexcept {
    constexpr std::size_t size = 4;
    return value.size() == size ? std::optional(EchoFec{}) : std::nullopt;
}

/// Type, protocol, the ends of the link, and the identifiers of both nodes: router ids, or the
/// system ids of IS-IS, which only that could verify (RFC 8287 section 5.3).
std::optional<EchoFec> adjacencyFec(Wire::Bytes value) noexcept {
    enum Type : std::uint8_t { unnumbered = 0, parallel = 1, ipv4 = 4, ipv6 = 6 };
    constexpr std::uint8_t anyProtocol = 0;
    constexpr std::uint8_t isis = 2;
    constexpr std::size_t fixed = 4;
    if (value.size() < fixed) {
        return std::nullopt;
    }
    const std::uint8_t type = value[0];
    const std::size_t end = type == ipv6 ? Lumo::IpGenAddr::ipv6Size : Lumo::IpGenAddr::ipv4Size;
    const std::size_t node = value[1] == isis ? 6 : 4;
    const bool isKnown = type == unnumbered || type == parallel || type == ipv4 || type == ipv6;
    if (!isKnown || value.size() != fixed + 2 * end + 2 * node) {
        return std::nullopt;
    }
    EchoFec fec{EchoFec::Kind::adjacency};
    if (value[1] != isis) {
        fec.receiver = addressAt(&value.last(node)[0], true);
        fec.namesNoRouter = value[1] == anyProtocol && fec.receiver.empty();
    }
    if (type == ipv4 || type == ipv6) {
        fec.local = addressAt(value.data() + fixed, type == ipv4);
        fec.remote = addressAt(value.data() + fixed + end, type == ipv4);
    }
    return fec;
}

Fault takeFec(std::vector<EchoFec>& fecs, const LspEchoTlv& tlv) {
    constexpr std::size_t behindSegment = 3;
    std::optional<EchoFec> fec;
    switch (tlv.type) {
    case LspEchoTlv::ldpIpv4Prefix:
    case LspEchoTlv::ldpIpv6Prefix:
        fec = prefixFec(tlv.value, tlv.type == LspEchoTlv::ldpIpv4Prefix, 0);
        break;
    case LspEchoTlv::ipv4PrefixSid:
    case LspEchoTlv::ipv6PrefixSid:
        fec = prefixFec(tlv.value, tlv.type == LspEchoTlv::ipv4PrefixSid, behindSegment);
        break;
    case LspEchoTlv::adjacencySid:
        fec = adjacencyFec(tlv.value);
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
        keepWhole(request.pads, tlv);
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

/// Empty when they are not whole labels.
std::optional<std::vector<Lumo::MplsLabel>> mappedLabels(Wire::Bytes value) {
    using Wire::LspEchoDownstream::labelSize;
    if (value.size() % labelSize != 0) {
        return std::nullopt;
    }
    std::vector<Lumo::MplsLabel> labels;
    for (; !value.empty(); value = value.subspan(labelSize)) {
        labels.push_back(Lumo::MplsLabelEntry::load(value.data()).label());
    }
    return labels;
}

/// `value` is long enough for its address type.
void takeAddresses(EchoMapping& mapping, Wire::Bytes value) noexcept {
    using namespace Wire::LspEchoDownstream;
    const std::uint8_t type = value[addressTypeAt];
    if (type == notApplicable) {
        return;
    }
    const bool isIpv4 = type == ipv4Numbered || type == ipv4Unnumbered;
    const bool isNumbered = type == ipv4Numbered || type == ipv6Numbered;
    const std::uint8_t* address = value.data() + addressesAt;
    mapping.address = addressAt(address, isIpv4);
    if (isNumbered) {
        mapping.interface = addressAt(
            address + (isIpv4 ? Lumo::IpGenAddr::ipv4Size : Lumo::IpGenAddr::ipv6Size), isIpv4);
    }
}

/// Multipath data asks for what need not be answered (RFC 8029 section 4.5).
Fault takeOfMapping(EchoMapping& mapping, const LspEchoTlv& tlv) {
    switch (tlv.type) {
    case LspEchoTlv::multipathData:
    case LspEchoTlv::fecStackChange:
        return Fault::none;
    case LspEchoTlv::downstreamLabelStack:
        mapping.labels = mappedLabels(tlv.value);
        return mapping.labels ? Fault::none : Fault::malformed;
    default:
        return unknown(tlv.type);
    }
}

/// A request has one at most.
Fault takeDownstreamMapping(LspEchoRequest& request, Wire::Bytes value) {
    using namespace Wire::LspEchoDownstream;
    Wire::Bytes subTlvs;
    if (request.mapping || !Wire::LspEchoDownstream::subTlvs(value, subTlvs)) {
        return Fault::malformed;
    }
    EchoMapping& mapping = request.mapping.emplace();
    mapping.wantsInterface = (value[flagsAt] & wantsInterface) != 0;
    takeAddresses(mapping, value);
    Fault worst = Fault::none;
    LspEchoTlv tlv;
    while (!subTlvs.empty()) {
        const Fault fault =
            LspEchoTlv::take(subTlvs, tlv) ? takeOfMapping(mapping, tlv) : Fault::malformed;
        if (fault == Fault::malformed) {
            return fault;
        }
        worst = fault != Fault::none ? fault : worst;
    }
    return worst;
}

/// The same as it was before (RFC 4379 section 3.3): older senders ask by it.
Fault takeDeprecatedMapping(LspEchoRequest& request, Wire::Bytes value) {
    using namespace Wire::LspEchoDownstream;
    Wire::Bytes labels;
    if (request.mapping || !labelsOfDeprecated(value, labels)) {
        return Fault::malformed;
    }
    EchoMapping& mapping = request.mapping.emplace();
    mapping.isDeprecated = true;
    mapping.wantsInterface = (value[flagsAt] & wantsInterface) != 0;
    takeAddresses(mapping, value);
    mapping.labels = mappedLabels(labels);
    return mapping.labels ? Fault::none : Fault::malformed;
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
    case LspEchoTlv::downstreamMapping:
        return takeDeprecatedMapping(request, tlv.value);
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
            keepWhole(request.notUnderstood, tlv);
        }
    }
    if (!request.notUnderstood.empty()) {
        return Fault::notUnderstood;
    }
    return request.fecs.empty() ? Fault::malformed : Fault::none;
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

bool EchoMapping::isOfUnknownAddress() const noexcept {
    static const Lumo::IpGenAddr loopback4 = Lumo::IpGenAddr::fromText("127.0.0.1");
    static const Lumo::IpGenAddr loopback6 = Lumo::IpGenAddr::fromText("::1");
    return address == loopback4 || address == loopback6;
}

bool EchoMapping::isToAllRouters() const noexcept {
    static const Lumo::IpGenAddr group4 = Lumo::IpGenAddr::fromText("224.0.0.2");
    static const Lumo::IpGenAddr group6 = Lumo::IpGenAddr::fromText("ff02::2");
    return address == group4 || address == group6;
}

} // namespace OvixAgent
