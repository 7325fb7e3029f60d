#include "handlers/EthOverMplsRewriteImpl.h"

#include "FrameEvents.h"
#include "Tessel/Assert.h"

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
    Tessel::hardAssert(right, "info", "fromInfo", pluginSource);
    return Tessel::make<EthOverMplsRewriteImpl>(
        Ptr<const EthOverMplsRewriteInfo>(static_cast<EthOverMplsRewriteInfo*>(info.get())));
}

Ptr<RoutingException> EthOverMplsRewriteImpl::apply(const Ptr<RoutingContext>& context) {
    PacketContext& packet = *context->packetContext();
    const Ptr<PacketHeader> firstHdr = packet.parsedPkt().header(0);
    Tessel::hardAssert(firstHdr && firstHdr->pktHdrType() == PktHdrType::eth,
                       "firstHdr->pktHdrType() == EthParser::pktHdrName()", "apply", pluginSource);
    const std::uint8_t tc = packet.trafficClassifier().trafficClass(packet.classificationInput());
    return applyMplsEncap(context, 0, 255, tc, false);
}

} // namespace Ovix
