#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "State/Frame.h"

namespace Bench {

/// The least that swapping labels may cost: one cache line per label with its counters, its label
/// and the link header, found by the label itself and loaded ahead; the TTL is tested, the frame
/// rewritten where it lies. Nothing is checked, asked or sent.
class BareLoop {
  public:
    /// Entries for so many labels from 16 on.
    explicit BareLoop(std::uint32_t labels);

    void forward(std::span<OvixAgent::WritableFrame> burst) noexcept;

    std::uint64_t dropped() const noexcept { return dropped_; }

  private:
    struct alignas(64) Entry {
        std::uint64_t packets = 0;
        std::uint64_t bytes = 0;
        std::uint8_t link[14]{};
        std::uint32_t label = 0; ///< as it stands in a stack's entry
        std::uint32_t port = 0;
    };
    static_assert(sizeof(Entry) == 64);

    std::vector<Entry> entries_; ///< by label
    std::uint64_t sent_[4]{};    ///< by port
    std::uint64_t dropped_ = 0;
};

} // namespace Bench
