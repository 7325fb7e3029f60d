#pragma once

#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>

#include "Lumo/MplsLabel.h"
#include "Ovix/routing/RoutingContext.h"
#include "Ovix/viaset/ViaSets.h"
#include "Tessel/Ptr.h"
#include "Tessel/Slab.h"

namespace Ovix {

/// A label entry as received with the via set found for it; none for the labels that are popped
/// without a lookup.
struct OvixMplsHdrAndViaSet {
    Lumo::MplsLabelEntry entry;
    Ptr<OvixMplsViaSet> viaSet;
};

/// What the walk over one packet's label stack found, by stack position from the top.
class OvixMplsViaSetStack final : public Tessel::Counted,
                                  public Tessel::Slabbed<OvixMplsViaSetStack> {
  public:
    static constexpr std::size_t positions = Lumo::MplsStackEntryIndex::nullValue + std::size_t{1};

    OvixMplsViaSetStack() noexcept {} // positions not yet added are left unset on purpose
    ~OvixMplsViaSetStack() override {
        for (std::uint32_t i = 0; i < count_; ++i) {
            std::destroy_at(entries() + i);
        }
    }

    /// Positions are added in order from 0, each once.
    void addViaSetForLabel(Lumo::MplsStackEntryIndex position, Lumo::MplsLabelEntry entry,
                           Ptr<OvixMplsViaSet> viaSet) noexcept {
        assert(position.value() == count_);
        new (entries() + position.value()) OvixMplsHdrAndViaSet{entry, std::move(viaSet)};
        count_ = position.value() + 1U;
    }

    std::uint32_t size() const noexcept { return count_; }
    bool empty() const noexcept { return count_ == 0; }
    const OvixMplsHdrAndViaSet& at(Lumo::MplsStackEntryIndex position) const noexcept {
        assert(position.value() < count_);
        return entries()[position.value()];
    }

  private:
    OvixMplsHdrAndViaSet* entries() noexcept {
        return reinterpret_cast<OvixMplsHdrAndViaSet*>(storage_.data());
    }
    const OvixMplsHdrAndViaSet* entries() const noexcept {
        return reinterpret_cast<const OvixMplsHdrAndViaSet*>(storage_.data());
    }

    std::uint32_t count_ = 0;
    alignas(OvixMplsHdrAndViaSet)
        std::array<std::byte, positions * sizeof(OvixMplsHdrAndViaSet)> storage_;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::OvixMplsViaSetStack>;

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
