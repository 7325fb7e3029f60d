#include "Live/workers/FrameRing.h"

namespace OvixAgent {

namespace {

using Visitor = std::function<bool(const WritableFrame&)>;

bool takeOne(FrameRing& ring, const Visitor& visitor) {
    WritableFrame frame;
    if (!ring.front(frame) || !visitor(frame)) {
        return false;
    }
    ring.pop();
    return true;
}

std::size_t takeOneOfEach(std::span<FrameRing* const> rings, const Visitor& visitor) {
    std::size_t taken = 0;
    for (FrameRing* const ring : rings) {
        taken += takeOne(*ring, visitor) ? 1 : 0;
    }
    return taken;
}

} // namespace

FrameRing::Push FrameRing::push(const WritableFrame& frame) noexcept {
    assert(recordBytes(frame.size) < size_);
    const std::size_t needed = recordBytes(frame.size);
    const std::size_t toEnd = size_ - (end_ & (size_ - 1));
    const std::size_t skipped = needed > toEnd ? toEnd : 0;
    if (end_ + skipped + needed - knownTaken_ > size_) {
        knownTaken_ = taken_.load(std::memory_order_acquire);
        if (end_ + skipped + needed - knownTaken_ > size_) {
            return Push::refused;
        }
    }
    const std::uint64_t before = end_;
    if (skipped > 0) {
        write(end_, {static_cast<std::uint32_t>(skipped), filler, 0, 0, {}});
        end_ += skipped;
    }
    write(end_, {static_cast<std::uint32_t>(needed), frame.size, frame.originalLength, frame.port,
                 frame.time});
    std::memcpy(at(end_) + sizeof(Record) + frameHeadroom, frame.bytes, frame.size);
    end_ += needed;
    // In one order with what the other thread does: it sees the frame, or this one sees that all
    // before it was taken.
    pushed_.store(end_);
    return taken_.load() == before ? Push::first : Push::another;
}

bool FrameRing::front(WritableFrame& frame) noexcept {
    for (;;) {
        if (begin_ == knownPushed_) {
            knownPushed_ = pushed_.load();
            if (begin_ == knownPushed_) {
                return false;
            }
        }
        Record record;
        std::memcpy(&record, at(begin_), sizeof record);
        frontBytes_ = record.bytes;
        if (record.size != filler) {
            frame = {at(begin_) + sizeof record + frameHeadroom,
                     record.size,
                     record.originalLength,
                     frameHeadroom,
                     record.port,
                     record.time};
            return true;
        }
        pop();
    }
}

void FrameRing::pop() noexcept {
    assert(frontBytes_ > 0);
    begin_ += frontBytes_;
    frontBytes_ = 0;
    taken_.store(begin_);
}

std::size_t takeFrames(std::span<FrameRing* const> urgent, std::span<FrameRing* const> others,
                       const Visitor& visitor, std::size_t budget) {
    std::size_t taken = 0;
    for (std::size_t now = 1; now > 0 && taken < budget; taken += now) {
        now = takeOneOfEach(urgent, visitor);
    }
    std::size_t ofOthers = 0;
    for (std::size_t now = 1; now > 0 && ofOthers < budget; ofOthers += now) {
        now = takeOneOfEach(others, visitor);
        taken += takeOneOfEach(urgent, visitor);
    }
    return taken + ofOthers;
}

} // namespace OvixAgent
