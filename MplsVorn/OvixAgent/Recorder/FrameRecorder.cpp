#include "Recorder/FrameRecorder.h"

#include <cassert>

#include "Tessel/TypeName.h"
#include "Wire/Ethernet.h"
#include "Wire/LabelStack.h"

namespace OvixAgent {

namespace {

constexpr std::string_view otherReasons = "Other reasons";

/// A reason with a number in it may be one of many, as whoever sends the frames likes.
bool hasValue(std::string_view reason) noexcept {
    return reason.find_first_of("0123456789") != std::string_view::npos;
}

bool isForNeighbour(std::string_view reason) noexcept {
    return reason == Reason::noNeighbour || reason == Reason::neighbourLimit;
}

} // namespace

std::optional<std::uint32_t> topLabel(Wire::Bytes frame) noexcept {
    const Wire::Ethernet header(frame);
    if (!header) {
        return std::nullopt;
    }
    Wire::TagWalk tags(header.etherType(), frame.subspan(Wire::Ethernet::size));
    for (Wire::Tag tag; tags.next(tag);) {
    }
    Wire::LabelWalk labels(tags.rest());
    Lumo::MplsLabelEntry top;
    return Wire::EtherType::isMpls(tags.etherType()) && labels.next(top)
               ? std::optional(top.label().value())
               : std::nullopt;
}

std::uint64_t HashOfVia::operator()(const RecordedVia& via) const noexcept {
    const auto& bytes = via.nexthop.bytes();
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return (Tessel::hashText(text) + via.port) * 0x9e3779b97f4a7c15 >> 40U;
}

std::size_t FrameRecorder::Log::kept() const noexcept {
    return frames > framesOfReason ? framesOfReason + 1 : frames;
}

const RecordedFrame& FrameRecorder::Log::keptAt(std::size_t index) const noexcept {
    assert(index < kept());
    return frames <= framesOfReason ? last[index]
           : index == 0             ? first
                                    : last[(frames + index - 1) % framesOfReason];
}

// There are few reasons, and each frame that is asked about has taken a microsecond anyway.
FrameRecorder::Log& FrameRecorder::logOf(const Fate& fate, std::uint64_t hash) {
    const auto known = std::find_if(byHash_.begin(), byHash_.end(),
                                    [&](const auto& entry) { return entry.first == hash; });
    if (known != byHash_.end()) {
        return *known->second;
    }
    const bool isShared =
        byHash_.size() == mostReasons || (hasValue(fate.reason) && valued_ == mostWithValues);
    if (isShared && others_ != nullptr) {
        return *others_;
    }
    Log& added = *logs_.emplace_back(std::make_unique<Log>());
    added.kind = fate.kind;
    added.reason = isShared ? otherReasons : fate.reason;
    if (isShared) {
        others_ = &added;
    } else {
        byHash_.emplace_back(hash, &added);
        valued_ += hasValue(fate.reason) ? 1 : 0;
    }
    return added;
}

void FrameRecorder::record(Log& log, const Frame& frame, const RecordedVia& via) {
    if (isPaused_) {
        return;
    }
    RecordedFrame& slot = begin(log, frame.port);
    copyHead(slot, frame.bytes.data(), frame.bytes.size());
    slot.time = frame.time;
    slot.length = frame.originalLength;
    slot.via = via;
    const auto label = topLabel(frame.bytes);
    if (label && --log.untilLabel == 0) {
        countLabel(log, *label, frame.time.seconds);
    }
    if (via.nexthop.family() != Lumo::IpFamily::none && isForNeighbour(log.reason)) {
        unresolved_.add(via, 1, frame.time.seconds);
    }
}

// The gap to the next one counted is random, so that no order of labels can hide one.
void FrameRecorder::countLabel(Log& log, std::uint32_t label, std::int64_t second) noexcept {
    constexpr std::uint32_t allOfSecond = 1024;
    log.labels.add(label, log.gap, second);
    if (second != log.second) {
        log.second = second;
        log.inSecond = 0;
    }
    log.inSecond += log.gap;
    random_ = random_ * 6364136223846793005 + 1442695040888963407;
    log.gap = log.inSecond < allOfSecond ? 1 : 1 + static_cast<std::uint32_t>(random_ >> 59U);
    log.untilLabel = log.gap;
}

} // namespace OvixAgent
