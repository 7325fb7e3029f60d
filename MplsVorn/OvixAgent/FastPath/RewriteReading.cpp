#include "FastPath/RewriteReading.h"

#include "FastPath/LabelRewrite.h"
#include "Ovix/rewrite/MplsRewrites.h"

namespace OvixAgent {

namespace {

using Kind = DecidedRewrite::Kind;
using Ovix::PktHdrType;

/// Whether the record is of that type and the host's own implementation applies it.
template <typename Info, typename Impl>
const Info* readAs(const Ovix::RewriteInfo& info, const Ovix::RewriteInfoImplMap& map) noexcept {
    const bool isInfo = info.typeName() == Info::infoTypeName;
    return isInfo && map.rewriteFn(Info::infoTypeName) == &Impl::fromInfo
               ? &static_cast<const Info&>(info)
               : nullptr;
}

/// Unset when a decision has no room for the labels, or one is of more than 20 bits.
std::optional<DecidedRewrite> readLabels(Kind kind, const Ovix::ImposedLabels& imposed,
                                         Mpls::TtlMode mode) {
    const Lumo::UnboundedMplsLabelOperation operation = imposed.operation();
    if (operation.depth() == 0 || operation.depth() > DecidedRewrite::maxLabels) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < operation.depth(); ++i) {
        if (operation.value(i) > Lumo::MplsLabel::max) {
            return std::nullopt;
        }
    }
    return imposing(kind, operation, mode);
}

std::optional<DecidedRewrite> readSwap(const Ovix::MplsSwapRewriteInfo& info) {
    return info.labels.namesFlow() ? std::nullopt
                                   : readLabels(Kind::swap, info.labels, info.ttlMode);
}

std::optional<DecidedRewrite> readPush(const Ovix::MplsIpPushRewriteInfo& info) {
    auto rewrite = readLabels(Kind::push, info.labels, info.ttlMode);
    if (rewrite && info.labels.namesFlow()) {
        rewrite->grows =
            static_cast<std::int8_t>(info.labels.entries() * Lumo::MplsLabelEntry::size);
        rewrite->record = Ptr<const Ovix::RewriteInfo>(&info);
    }
    return rewrite;
}

/// What a pop exposes; none when the payload contradicts the label's payload type.
PktHdrType exposedBy(Mpls::PayloadType payload, Ovix::Beneath beneath) noexcept {
    using Ovix::Beneath;
    if (beneath == Beneath::label) {
        return PktHdrType::mpls;
    }
    if (payload == Mpls::PayloadType::ethernet) {
        return PktHdrType::eth;
    }
    const bool isAny =
        payload == Mpls::PayloadType::none || payload == Mpls::PayloadType::automatic;
    if (beneath == Beneath::ipv4 && (isAny || payload == Mpls::PayloadType::ipv4)) {
        return PktHdrType::ipv4;
    }
    if (beneath == Beneath::ipv6 && (isAny || payload == Mpls::PayloadType::ipv6)) {
        return PktHdrType::ipv6;
    }
    return PktHdrType::none;
}

std::optional<DecidedRewrite> readPop(const Ovix::MplsPopRewriteInfo& info, Ovix::Beneath beneath) {
    DecidedRewrite rewrite;
    rewrite.kind = Kind::pop;
    rewrite.grows = -static_cast<std::int8_t>(Lumo::MplsLabelEntry::size);
    rewrite.isUniform = info.ttlMode == Mpls::TtlMode::uniform;
    rewrite.exposesTc = info.exposesTc;
    rewrite.exposed = exposedBy(info.payload, beneath);
    return rewrite.exposed != PktHdrType::none ? std::optional(rewrite) : std::nullopt;
}

} // namespace

std::optional<DecidedRewrite> readRewrites(const Ovix::RewriteInfos& infos, Ovix::Beneath beneath,
                                           const Ovix::RewriteInfoImplMap& map) {
    const auto& list = infos.rewrites();
    if (list.empty() || list.size() > 2) {
        return std::nullopt;
    }
    const Ovix::RewriteInfo& first = *list.front();
    if (list.size() == 2) {
        auto second = list.begin();
        ++second;
        const auto* ttl = readAs<Ovix::MplsTtlRewriteInfo, Ovix::MplsTtlRewriteImpl>(first, map);
        const auto* push =
            readAs<Ovix::MplsIpPushRewriteInfo, Ovix::MplsIpPushRewriteImpl>(**second, map);
        return ttl != nullptr && push != nullptr ? readPush(*push) : std::nullopt;
    }
    if (const auto* swap =
            readAs<Ovix::MplsSwapRewriteInfo, Ovix::MplsSwapRewriteImpl>(first, map)) {
        return readSwap(*swap);
    }
    const auto* pop = readAs<Ovix::MplsPopRewriteInfo, Ovix::MplsPopRewriteImpl>(first, map);
    return pop != nullptr ? readPop(*pop, beneath) : std::nullopt;
}

bool popsAsRecorded(const Ovix::RewriteInfoImplMap& map) noexcept {
    return map.rewriteFn(Ovix::MplsPopRewriteInfo::infoTypeName) ==
           &Ovix::MplsPopRewriteImpl::fromInfo;
}

} // namespace OvixAgent
