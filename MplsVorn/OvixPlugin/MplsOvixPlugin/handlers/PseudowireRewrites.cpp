#include "handlers/PseudowireRewrites.h"

#include <algorithm>

#include "FrameEvents.h"
#include "Tessel/Assert.h"
#include "Wire/ControlWord.h"

namespace Ovix {

Ptr<EthOverMplsRewriteImpl>
EthOverMplsRewriteImpl::EthOverMplsRewriteImplIs(const Ptr<const EthOverMplsRewriteInfo>& info) {
    return Tessel::make<EthOverMplsRewriteImpl>(info);
}

Ptr<EthOverMplsRewriteImpl>
ethOverMplsRewriteImplFactory(const Ptr<const EthOverMplsRewriteInfo>& info) {
    return EthOverMplsRewriteImpl::EthOverMplsRewriteImplIs(info);
}

Ptr<RewriteImpl> EthOverMplsRewriteImpl::fromInfo(const Ptr<RewriteInfo>& info) {
    const bool right = info && info->typeName() == EthOverMplsRewriteInfo::infoTypeName;
    Tessel::hardAssert(right, "info");
    return Tessel::make<EthOverMplsRewriteImpl>(
        Ptr<const EthOverMplsRewriteInfo>(static_cast<EthOverMplsRewriteInfo*>(info.get())));
}

Ptr<RoutingException> EthOverMplsRewriteImpl::apply(const Ptr<RoutingContext>& context) {
    PacketContext& packet = *context->packetContext();
    const Ptr<PacketHeader> firstHdr = packet.parsedPkt().header(0);
    Tessel::hardAssert(firstHdr && firstHdr->pktHdrType() == PktHdrType::eth,
                       "firstHdr->pktHdrType() == EthParser::pktHdrName()");
    const std::uint8_t tc = packet.trafficClassifier().trafficClass(packet.classificationInput());
    return applyMplsEncap(context, 0, 255, tc, false);
}

namespace {

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
    Tessel::hardAssert(right, "info");
    return Tessel::make<ControlWordPushRewriteImpl>(Ptr<const ControlWordPushRewriteInfo>(
        static_cast<ControlWordPushRewriteInfo*>(info.get())));
}

Ptr<RoutingException> ControlWordPushRewriteImpl::apply(const Ptr<RoutingContext>& context) {
    PacketContext& packet = *context->packetContext();
    const Ptr<PacketHeader> firstHdr = packet.parsedPkt().header(0);
    Tessel::hardAssert(firstHdr && firstHdr->pktHdrType() == PktHdrType::mpls,
                       "firstHdr->pktHdrType() == MplsParser::pktHdrName()");
    const Wire::Bytes frame = packet.pkt()->data();
    const std::size_t stack = stackSize(*firstHdr);
    assert(stack <= frame.size());
    if (frame.size() + Wire::ControlWord::size > Lumo::Pkt::maxBytes) {
        return Tessel::make<RoutingException>("Control word does not fit the packet");
    }
    const Ptr<Lumo::Pkt> longer = Lumo::globalPktManager()->newPkt();
    const Wire::WritableBytes to =
        longer->newSharedHeadData(frame.size() + Wire::ControlWord::size);
    std::copy_n(frame.begin(), stack, to.begin());
    Wire::ControlWordWriter(to.subspan(stack)).clear();
    const Wire::Bytes payload = frame.subspan(stack);
    std::copy(payload.begin(), payload.end(), to.subspan(stack + Wire::ControlWord::size).begin());
    packet.replacePacket(longer, PktCtxParse::reparse);
    return nullptr;
}

} // namespace Ovix
