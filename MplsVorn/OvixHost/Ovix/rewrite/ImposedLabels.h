#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "Lumo/MplsLabelOperation.h"
#include "Ovix/packet/PacketContext.h"
#include "Tessel/Exceptions.h"

namespace Ovix {

/// A copy of a label operation that outlives the via it was read from. More than 33 labels, which
/// no via record has room for, throw RangeError.
class ImposedLabels {
  public:
    explicit ImposedLabels(const Lumo::UnboundedMplsLabelOperation& operation)
        : tc_(operation.tc), pushedTc_(operation.pushedTc), ttl_(operation.ttl),
          entropyBeneath_(operation.entropyBeneath), flowLabel_(operation.flowLabel) {
        const std::span<const std::uint8_t> packed = operation.packed();
        if (packed.size() > packed_.size()) [[unlikely]] {
            throw Tessel::RangeError("a stack of more than 33 labels");
        }
        // Label by label, because most stacks are shorter than a call takes.
        constexpr std::size_t labelSize = Lumo::UnboundedMplsLabelOperation::packedLabelSize;
        std::size_t at = 0;
        for (; at + labelSize <= packed.size(); at += labelSize) {
            packed_[at] = packed[at];
            packed_[at + 1] = packed[at + 1];
            packed_[at + 2] = packed[at + 2];
        }
        size_ = static_cast<std::uint8_t>(at);
        assert(entropyBeneath_ <= operation.depth());
    }

    /// One label.
    explicit ImposedLabels(Lumo::MplsLabel label) noexcept
        : ttl_(Lumo::UnboundedMplsLabelOperation::defaultTtl), entropyBeneath_(0),
          flowLabel_(false), size_(Lumo::UnboundedMplsLabelOperation::packedLabelSize) {
        packed_[0] = static_cast<std::uint8_t>(label.value() >> 16U);
        packed_[1] = static_cast<std::uint8_t>(label.value() >> 8U);
        packed_[2] = static_cast<std::uint8_t>(label.value());
    }

    /// Outermost first.
    Lumo::UnboundedMplsLabelOperation operation() const noexcept {
        Lumo::UnboundedMplsLabelOperation operation({packed_.data(), size_});
        operation.tc = tc_;
        operation.pushedTc = pushedTc_;
        operation.ttl = ttl_;
        operation.entropyBeneath = entropyBeneath_;
        operation.flowLabel = flowLabel_;
        return operation;
    }

    /// Pushes the labels, those of the packet's flow included, with this TC and TTL, and makes the
    /// packet one that starts with MPLS. `ontoLabels`: what lies
    /// beneath is a label stack; else the innermost entry is the bottom (RFC 3032 section 2.1).
    /// False, with nothing done, when the packet would grow beyond what a packet holds.
    bool push(PacketContext& packet, std::uint8_t tc, std::uint8_t ttl, bool ontoLabels) const;

    /// The entries that push() adds.
    std::size_t entries() const noexcept {
        return size_ / Lumo::UnboundedMplsLabelOperation::packedLabelSize +
               (entropyBeneath_ > 0 ? 2U : 0U) + (flowLabel_ ? 1U : 0U);
    }
    /// Whether push() needs the flow's hash.
    bool namesFlow() const noexcept { return entropyBeneath_ > 0 || flowLabel_; }
    /// Writes what push() pushes to room for exactly that.
    void write(std::span<std::uint8_t> room, std::uint8_t tc, std::uint8_t ttl, std::uint32_t hash,
               bool ontoLabels) const;

  private:
    std::optional<std::uint8_t> tc_;
    std::optional<std::uint8_t> pushedTc_;
    std::uint8_t ttl_;
    std::uint8_t entropyBeneath_;
    bool flowLabel_;
    std::uint8_t size_ = 0;
    std::array<std::uint8_t, 100> packed_; ///< the first size_ are set
};

} // namespace Ovix
