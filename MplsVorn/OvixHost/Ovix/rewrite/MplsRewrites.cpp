#include "Ovix/rewrite/MplsRewrites.h"

#include "Ovix/packet/TtlBytes.h"
#include "Ovix/rewrite/MplsPushRewriteImpl.h"
#include "Tessel/Assert.h"
#include "Wire/Ip.h"

template class Tessel::Slabbed<Ovix::RoutingException>;
template class Tessel::Slabbed<Ovix::MplsSwapRewriteInfo>;
template class Tessel::Slabbed<Ovix::MplsPopRewriteInfo>;
template class Tessel::Slabbed<Ovix::MplsIpPushRewriteInfo>;
template class Tessel::Slabbed<Ovix::MplsTtlRewriteInfo>;
template class Tessel::Slabbed<Ovix::MplsSwapRewriteImpl>;
template class Tessel::Slabbed<Ovix::MplsPopRewriteImpl>;
template class Tessel::Slabbed<Ovix::MplsIpPushRewriteImpl>;
template class Tessel::Slabbed<Ovix::MplsTtlRewriteImpl>;
template class Tessel::Slabbed<Ovix::EthOverMplsRewriteInfo>;
template class Tessel::Slabbed<Ovix::ControlWordPushRewriteInfo>;

namespace Ovix {

namespace {

constexpr std::size_t entrySize = Lumo::MplsLabelEntry::size;

constexpr std::string_view stackCutShort = "Label stack cut short";
constexpr std::string_view stackDoesNotFit = "Label stack does not fit the packet";
constexpr std::string_view payloadContradicts = "Payload is not of the label's payload type";

Ptr<RoutingException> fail(std::string_view reason) {
    return Tessel::make<RoutingException>(reason);
}

template <typename Impl, typename Info>
Ptr<RewriteImpl> makeFromInfo(const Ptr<RewriteInfo>& info) {
    const bool right = info && info->typeName() == Info::infoTypeName;
    Tessel::hardAssert(right, "info", "fromInfo");
    return Tessel::make<Impl>(Ptr<Info>(static_cast<Info*>(info.get())));
}

bool startsWithEntry(const PacketContext& packet) noexcept {
    return packet.outerType() == PktHdrType::mpls &&
           TtlBytes::whole(PktHdrType::mpls, packet.pkt()->data());
}

/// The router's one decrement: taken from `ttl` unless an earlier rewrite has taken it.
std::uint8_t decrementedOnce(PacketContext& packet, std::uint8_t ttl) noexcept {
    if (packet.ttlDecremented() || ttl == 0) {
        return ttl;
    }
    packet.ttlDecrementedIs(true);
    return static_cast<std::uint8_t>(ttl - 1);
}

/// What lies under the last label, by what the label says and the first nibble confirms.
PktHdrType payloadHeader(Mpls::PayloadType payload, std::span<const std::uint8_t> bytes) noexcept {
    const auto wholeOrNone = [&](PktHdrType type) {
        return TtlBytes::whole(type, bytes) ? type : PktHdrType::none;
    };
    switch (payload) {
    case Mpls::PayloadType::ipv4:
        return wholeOrNone(PktHdrType::ipv4);
    case Mpls::PayloadType::ipv6:
        return wholeOrNone(PktHdrType::ipv6);
    case Mpls::PayloadType::ethernet:
        return PktHdrType::eth; // or a pseudowire's message, which may be shorter than a header
    case Mpls::PayloadType::none:
    case Mpls::PayloadType::automatic:
        return Wire::ipVersion(bytes) == 6 ? wholeOrNone(PktHdrType::ipv6)
                                           : wholeOrNone(PktHdrType::ipv4);
    default:
        return PktHdrType::none;
    }
}

} // namespace

Ptr<RewriteImpl> MplsSwapRewriteImpl::fromInfo(const Ptr<RewriteInfo>& info) {
    return makeFromInfo<MplsSwapRewriteImpl, MplsSwapRewriteInfo>(info);
}

Ptr<RewriteImpl> MplsPopRewriteImpl::fromInfo(const Ptr<RewriteInfo>& info) {
    return makeFromInfo<MplsPopRewriteImpl, MplsPopRewriteInfo>(info);
}

Ptr<RewriteImpl> MplsIpPushRewriteImpl::fromInfo(const Ptr<RewriteInfo>& info) {
    return makeFromInfo<MplsIpPushRewriteImpl, MplsIpPushRewriteInfo>(info);
}

Ptr<RewriteImpl> MplsTtlRewriteImpl::fromInfo(const Ptr<RewriteInfo>& info) {
    return makeFromInfo<MplsTtlRewriteImpl, MplsTtlRewriteInfo>(info);
}

Ptr<RoutingException> MplsSwapRewriteImpl::apply(const Ptr<RoutingContext>& context) {
    PacketContext& packet = *context->packetContext();
    Lumo::Pkt& bytes = *packet.pkt();
    if (!startsWithEntry(packet)) {
        return fail(stackCutShort);
    }
    const Lumo::UnboundedMplsLabelOperation operation = info().labels.operation();
    const auto top = Lumo::MplsLabelEntry::load(bytes.data().data());
    const std::size_t pushed = operation.depth() - 1;
    if (pushed > 0 && bytes.pushFront(pushed * entrySize).empty()) {
        return fail(stackDoesNotFit);
    }
    const std::uint8_t ttl = decrementedOnce(packet, top.ttl());
    const std::uint8_t tc = operation.tc.value_or(top.tc());
    const std::uint8_t pushedTtl = info().ttlMode == Mpls::TtlMode::uniform ? ttl : operation.ttl;
    std::uint8_t* front = bytes.writableData().data();
    for (std::size_t i = 0; i < pushed; ++i) {
        Lumo::MplsLabelEntry(operation.label(i), operation.pushedTc.value_or(tc), false, pushedTtl)
            .store(front + i * entrySize);
    }
    Lumo::MplsLabelEntry(operation.label(pushed), tc, top.bos(), ttl)
        .store(front + pushed * entrySize);
    packet.outerTypeIs(PktHdrType::mpls);
    return nullptr;
}

Ptr<RoutingException> MplsPopRewriteImpl::apply(const Ptr<RoutingContext>& context) {
    PacketContext& packet = *context->packetContext();
    Lumo::Pkt& pkt = *packet.pkt();
    if (!startsWithEntry(packet)) {
        return fail(stackCutShort);
    }
    const auto top = Lumo::MplsLabelEntry::load(pkt.data().data());
    const std::span<std::uint8_t> beneath = pkt.writableData().subspan(entrySize);
    const PktHdrType exposed =
        top.bos() ? payloadHeader(info().payload, beneath) : PktHdrType::mpls;
    if (exposed == PktHdrType::none) {
        return fail(payloadContradicts);
    }
    if (exposed == PktHdrType::mpls && !TtlBytes::whole(exposed, beneath)) {
        return fail(stackCutShort);
    }
    // A TTL of 0, or one that this router uses up, is not carried: only an entropy label and its
    // indicator get here with one. The indicator's TTL replaces that of the entropy label, which
    // has none of its own (RFC 6790 section 4.2).
    const bool indicator = top.label() == Lumo::entropyLabelIndicator && !top.bos();
    const bool carriesTtl =
        info().ttlMode == Mpls::TtlMode::uniform && top.ttl() > (packet.ttlDecremented() ? 0 : 1);
    if (exposed != PktHdrType::eth && (carriesTtl || indicator)) {
        TtlBytes::ttlIs(exposed, beneath, carriesTtl ? decrementedOnce(packet, top.ttl()) : 0);
    }
    if (info().exposesTc && exposed != PktHdrType::eth) {
        trafficClassIs(exposed, beneath, top.tc());
    }
    if (info().ttlMode == Mpls::TtlMode::pipe) {
        packet.ttlDecrementedIs(false); // a decrement taken so far was the popped entry's
    }
    pkt.popFront(entrySize);
    packet.outerTypeIs(exposed);
    return nullptr;
}

Ptr<RoutingException> MplsIpPushRewriteImpl::apply(const Ptr<RoutingContext>& context) {
    PacketContext& packet = *context->packetContext();
    Lumo::Pkt& pkt = *packet.pkt();
    const PktHdrType beneath = packet.outerType();
    if (!TtlBytes::whole(beneath, pkt.data())) {
        return fail(beneath == PktHdrType::mpls ? stackCutShort : payloadContradicts);
    }
    const Lumo::UnboundedMplsLabelOperation operation = info().labels.operation();
    const std::uint8_t tc = operation.tc.value_or(trafficClassOf(beneath, pkt.data()));
    const std::uint8_t ttl = info().ttlMode == Mpls::TtlMode::uniform
                                 ? TtlBytes::ttl(beneath, pkt.data())
                                 : operation.ttl;
    const bool fits = info().labels.push(packet, tc, ttl, beneath == PktHdrType::mpls);
    return fits ? nullptr : fail(stackDoesNotFit);
}

Ptr<RoutingException> MplsTtlRewriteImpl::apply(const Ptr<RoutingContext>& context) {
    PacketContext& packet = *context->packetContext();
    const PktHdrType type = packet.outerType();
    const std::span<std::uint8_t> bytes = packet.pkt()->writableData();
    if (!TtlBytes::whole(type, bytes)) {
        return fail(type == PktHdrType::mpls ? stackCutShort : payloadContradicts);
    }
    TtlBytes::ttlIs(type, bytes, decrementedOnce(packet, TtlBytes::ttl(type, bytes)));
    return nullptr;
}

Ptr<RoutingException> MplsPushRewriteImpl::applyMplsEncap(const Ptr<RoutingContext>& context,
                                                          unsigned label, std::uint8_t ttl,
                                                          std::uint8_t tc, bool ontoLabels) const {
    const Lumo::MplsLabel only(label);
    PacketContext& packet = *context->packetContext();
    const bool fits = labels_->operation().depth() > 0
                          ? labels_->push(packet, tc, ttl, ontoLabels)
                          : ImposedLabels(only).push(packet, tc, ttl, ontoLabels);
    return fits ? nullptr : fail(stackDoesNotFit);
}

} // namespace Ovix
