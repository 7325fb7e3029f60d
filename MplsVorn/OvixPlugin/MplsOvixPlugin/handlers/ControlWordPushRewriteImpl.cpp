#include "handlers/ControlWordPushRewriteImpl.h"

#include <algorithm>

#include "FrameEvents.h"
#include "Tessel/Assert.h"

namespace Ovix {

namespace {

constexpr std::size_t controlWordSize = 4;

/// The bytes of a header's label stack; 0 without one.
std::size_t stackSize(const PacketHeader& header) noexcept {
    const MplsHeaderData* labels = mplsHeaderData(header);
    return labels != nullptr ? labels->entries() * Lumo::MplsLabelEntry::size : 0;
}

} // namespace

Ptr<ControlWordPushRewriteImpl> ControlWordPushRewriteImpl::ControlWordPushRewriteImplIs(
    const Ptr<const ControlWordPushRewriteInfo>& info) {
    return Tessel::make<ControlWordPushRewriteImpl>(info);
}

Ptr<ControlWordPushRewriteImpl>
controlWordPushRewriteImplFactory(const Ptr<const ControlWordPushRewriteInfo>& info) {
    return ControlWordPushRewriteImpl::ControlWordPushRewriteImplIs(info);
}

Ptr<RewriteImpl> ControlWordPushRewriteImpl::fromInfo(const Ptr<RewriteInfo>& info) {
    const bool right = info && info->typeName() == ControlWordPushRewriteInfo::infoTypeName;
    Tessel::hardAssert(right, "info", "fromInfo", pluginSource);
    return Tessel::make<ControlWordPushRewriteImpl>(Ptr<const ControlWordPushRewriteInfo>(
        static_cast<ControlWordPushRewriteInfo*>(info.get())));
}

Ptr<RoutingException> ControlWordPushRewriteImpl::apply(const Ptr<RoutingContext>& context) {
    PacketContext& packet = *context->packetContext();
    const Ptr<PacketHeader> firstHdr = packet.parsedPkt().header(0);
    Tessel::hardAssert(firstHdr && firstHdr->pktHdrType() == PktHdrType::mpls,
                       "firstHdr->pktHdrType() == MplsParser::pktHdrName()", "apply", pluginSource);
    const std::span<const std::uint8_t> frame = packet.pkt()->data();
    const std::span<const std::uint8_t> stack = frame.first(stackSize(*firstHdr));
    const std::span<const std::uint8_t> payload = frame.subspan(stack.size());
    if (frame.size() + controlWordSize > Lumo::Pkt::maxBytes) {
        return Tessel::make<RoutingException>("Control word does not fit the packet");
    }
    const Ptr<Lumo::Pkt> longer = Lumo::globalPktManager()->newPkt();
    const auto to = longer->newSharedHeadData(frame.size() + controlWordSize).begin();
    std::copy(stack.begin(), stack.end(), to);
    std::fill_n(to + static_cast<std::ptrdiff_t>(stack.size()), controlWordSize, std::uint8_t{0});
    std::copy(payload.begin(), payload.end(),
              to + static_cast<std::ptrdiff_t>(stack.size() + controlWordSize));
    packet.replacePacket(longer, PktCtxParse::reparse);
    return nullptr;
}

} // namespace Ovix
