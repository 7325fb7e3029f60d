#include "State/FrameBurst.h"

#include <algorithm>

namespace OvixAgent {

namespace {

constexpr std::size_t cacheLine = 64;

} // namespace

std::uint8_t* FrameBurst::room(std::size_t longest) noexcept {
    const std::size_t needed = frameHeadroom + longest;
    const bool fits = !isFull() && needed <= memory_.size() - usedBytes_;
    return fits ? memory_.data() + usedBytes_ + frameHeadroom : nullptr;
}

void FrameBurst::addWritten(WritableFrame frame) noexcept {
    assert(frameHeadroom + frame.size <= memory_.size() - usedBytes_);
    frame.bytes = memory_.data() + usedBytes_ + frameHeadroom;
    frame.headroom = frameHeadroom;
    add(frame);
    const std::size_t used = usedBytes_ + frameHeadroom + frame.size;
    usedBytes_ = std::min(memory_.size(), (used + cacheLine - 1) / cacheLine * cacheLine);
}

} // namespace OvixAgent
