#include "BareLoop.h"

#include <algorithm>
#include <cstring>

namespace Bench {

using OvixAgent::WritableFrame;

namespace {

constexpr std::size_t linkSize = 14;
constexpr std::uint32_t firstLabel = 16;

std::uint32_t entryOf(const WritableFrame& frame) noexcept {
    std::uint32_t word = 0;
    std::memcpy(&word, frame.bytes + linkSize, sizeof(word));
    return __builtin_bswap32(word);
}

} // namespace

BareLoop::BareLoop(std::uint32_t labels) : entries_(firstLabel + labels) {
    for (Entry& entry : entries_) {
        constexpr std::uint8_t link[linkSize]{2, 0, 0, 0, 2, 2, 2, 0, 0, 0, 0, 2, 0x88, 0x47};
        std::copy(std::begin(link), std::end(link), std::begin(entry.link));
        entry.label = 300U << 12U;
        entry.port = 1;
    }
}

void BareLoop::forward(std::span<WritableFrame> burst) noexcept {
    constexpr std::size_t framesAhead = 16;
    constexpr std::size_t entriesAhead = 8;
    for (std::size_t i = 0; i < burst.size(); ++i) {
        if (i + framesAhead < burst.size()) {
            __builtin_prefetch(burst[i + framesAhead].bytes, 1);
        }
        if (i + entriesAhead < burst.size()) {
            __builtin_prefetch(&entries_[entryOf(burst[i + entriesAhead]) >> 12U], 1);
        }
        const std::uint32_t word = entryOf(burst[i]);
        Entry& entry = entries_[word >> 12U];
        if ((word & 0xffU) <= 1) {
            ++dropped_;
            continue;
        }
        const std::uint32_t out = __builtin_bswap32(entry.label | ((word & 0xfffU) - 1));
        std::memcpy(burst[i].bytes + linkSize, &out, sizeof(out));
        std::memcpy(burst[i].bytes, entry.link, linkSize);
        ++entry.packets;
        entry.bytes += burst[i].size;
        ++sent_[entry.port];
    }
}

} // namespace Bench
