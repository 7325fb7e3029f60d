#include "Ovix/rewrite/MplsPushRewriteImpl.h"

template class Tessel::Slabbed<Ovix::EthOverMplsRewriteInfo>;
template class Tessel::Slabbed<Ovix::ControlWordPushRewriteInfo>;

namespace Ovix {

Ptr<RoutingException> MplsPushRewriteImpl::applyMplsEncap(const Ptr<RoutingContext>& context,
                                                          unsigned label, std::uint8_t ttl,
                                                          std::uint8_t tc, bool ontoLabels) const {
    constexpr std::size_t entrySize = Lumo::MplsLabelEntry::size;
    const Lumo::UnboundedMplsLabelOperation imposed = labels_->operation();
    const Lumo::MplsLabel only(label);
    const std::size_t depth = imposed.depth() > 0 ? imposed.depth() : 1;
    PacketContext& packet = *context->packetContext();
    const std::span<std::uint8_t> room = packet.pkt()->pushFront(depth * entrySize);
    if (room.empty()) {
        return Tessel::make<RoutingException>("Label stack does not fit the packet");
    }
    for (std::size_t i = 0; i < depth; ++i) {
        const bool bottom = !ontoLabels && i + 1 == depth;
        Lumo::MplsLabelEntry(imposed.depth() > 0 ? imposed.label(i) : only, tc, bottom, ttl)
            .store(room.data() + i * entrySize);
    }
    packet.outerTypeIs(PktHdrType::mpls);
    return nullptr;
}

} // namespace Ovix
