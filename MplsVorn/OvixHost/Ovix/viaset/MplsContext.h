#pragma once

#include <cstdint>
#include <optional>

#include "Ovix/routing/RoutingContext.h"
#include "Ovix/viaset/OvixMplsViaSetStack.h"

namespace Ovix {

/// The working context of one label: what via selection and the via-type handlers are given.
class MplsContext final : public Tessel::Counted, public Tessel::Slabbed<MplsContext> {
  public:
    /// `innerHeader` is the header that follows the MPLS header; it may be empty.
    MplsContext(const Ptr<RoutingContext>& routingContext, Lumo::MplsLabelEntry entry,
                const Ptr<PacketHeader>& innerHeader, const Ptr<OvixMplsViaSet>& viaSet,
                const Ptr<OvixMplsViaSetStack>& viaSetStack, Lumo::MplsStackEntryIndex position,
                const Ptr<RoutingNexthops>& nexthops) noexcept
        : routingContext_(routingContext), innerHeader_(innerHeader), viaSet_(viaSet),
          viaSetStack_(viaSetStack), nexthops_(nexthops), entry_(entry), position_(position) {}

    const Ptr<RoutingContext>& routingContext() const noexcept { return routingContext_; }
    Lumo::MplsLabelEntry entry() const noexcept { return entry_; }
    const Ptr<PacketHeader>& packetHeader() const noexcept { return innerHeader_; }
    const Ptr<OvixMplsViaSet>& viaSet() const noexcept { return viaSet_; }
    const Ptr<OvixMplsViaSetStack>& viaSetStack() const noexcept { return viaSetStack_; }
    Lumo::MplsStackEntryIndex position() const noexcept { return position_; }
    const Ptr<RoutingNexthops>& nexthops() const noexcept { return nexthops_; }

    /// The via chosen; set before a handler is called.
    std::optional<std::uint32_t> viaIndex() const noexcept { return viaIndex_; }
    void viaIndexIs(std::uint32_t index) noexcept { viaIndex_ = index; }

    /// Empty when there is no routing context.
    Ptr<PacketContext> pktCtx() const noexcept {
        return routingContext_ ? routingContext_->packetContext() : nullptr;
    }

    /// Completes the parse of the frame; needs a routing context.
    void maybeDoFullParse() const {
        routingContext_->packetContext()->parsedPkt().maybeDoFullParse();
    }

  private:
    Ptr<RoutingContext> routingContext_;
    Ptr<PacketHeader> innerHeader_;
    Ptr<OvixMplsViaSet> viaSet_;
    Ptr<OvixMplsViaSetStack> viaSetStack_;
    Ptr<RoutingNexthops> nexthops_;
    std::optional<std::uint32_t> viaIndex_;
    Lumo::MplsLabelEntry entry_;
    Lumo::MplsStackEntryIndex position_;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::MplsContext>;
