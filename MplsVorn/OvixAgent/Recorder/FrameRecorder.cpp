#include "Recorder/FrameRecorder.h"

#include <algorithm>
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
    return reason == Reason::noNeighbour || reason == Reason::notOneNeighbour ||
           reason == Reason::neighbourLimit;
}

} // namespace

std::optional<std::uint32_t> topLabel(Wire::Bytes frame) noexcept {
    const Wire::TagWalk tags = Wire::behindTags(frame);
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
    return std::min<std::uint64_t>(seen(), places);
}

const RecordedFrame& FrameRecorder::Log::keptAt(std::size_t index) const noexcept {
    assert(index < kept());
    return seen() <= framesOfReason ? last_[index]
           : index == 0             ? first_
                                    : last_[(seen() + index - 1) % framesOfReason];
}

const RecordedFrame* FrameRecorder::Log::at(std::size_t place) const noexcept {
    if (place == 0) {
        return seen() > framesOfReason ? &first_ : nullptr;
    }
    return place - 1 < seen() ? &last_[place - 1] : nullptr;
}

void FrameRecorder::Log::countPort() noexcept {
    byPort_[port_] += seen() - portFrom_;
    portFrom_ = seen();
}

void FrameRecorder::Log::portIs(PortIndex port) {
    countPort();
    port_ = port;
    if (port >= byPort_.size()) {
        byPort_.resize(port + std::size_t{1});
    }
}

std::vector<std::uint64_t> FrameRecorder::Log::byPort() const {
    std::vector<std::uint64_t> all = byPort_;
    all[port_] += seen() - portFrom_;
    return all;
}

void FrameRecorder::Log::countLabelAt(std::size_t place, std::uint32_t times,
                                      Labels& in) const noexcept {
    if (const auto label = topLabel(last_[place].bytes())) {
        in.add(*label, times, last_[place].time.seconds);
    }
}

// In a second with many frames, one of them that is taken at random counts for all.
void FrameRecorder::Log::wrap(std::uint64_t random) noexcept {
    constexpr std::uint32_t allOfSecond = 1024;
    if (wrapped_ == 0) {
        first_ = last_.front();
    }
    if (last_.back().time.seconds != second_) {
        second_ = last_.back().time.seconds;
        inSecond_ = 0;
    }
    inSecond_ += framesOfReason;
    if (inSecond_ > allOfSecond) {
        countLabelAt(random % framesOfReason, framesOfReason, labels_);
    }
    for (std::size_t i = 0; inSecond_ <= allOfSecond && i < framesOfReason; ++i) {
        countLabelAt(i, 1, labels_);
    }
    wrapped_ += framesOfReason;
    next_ = last_.data();
}

std::vector<FrameRecorder::Labels::Entry> FrameRecorder::Log::topLabels(std::int64_t second) const {
    Labels all = labels_;
    for (std::size_t i = 0; i < static_cast<std::size_t>(next_ - last_.data()); ++i) {
        countLabelAt(i, 1, all);
    }
    return all.top(topKeys, second);
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
    const Fate named{fate.kind, isShared ? otherReasons : fate.reason};
    Log& added = *logs_.emplace_back(std::make_unique<Log>(named, hash));
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
    if (frame.isOwn) {
        log.ownByPort_.resize(log.byPort_.size());
        ++log.ownByPort_[frame.port];
    }
    slot.viaPort = via.port;
    slot.viaNexthop = via.nexthop;
    slot.time = frame.time;
    slot.length = frame.originalLength;
    copyHead(slot, frame.bytes.data(), frame.bytes.size());
    if (via.nexthop.family() != Lumo::IpFamily::none && isForNeighbour(log.reason)) {
        unresolved_.add(via, 1, frame.time.seconds);
    }
}

/// Of `taken` frames the other's places have been copied.
void FrameRecorder::Log::absorbCounts(const Log& other, std::uint64_t taken) {
    absorbed_ += other.frames() - taken;
    const std::vector<std::uint64_t> theirs = other.byPort();
    byPort_.resize(std::max(byPort_.size(), theirs.size()));
    for (std::size_t port = 0; port < theirs.size(); ++port) {
        byPort_[port] += theirs[port];
    }
    for (std::size_t i = 0; i < other.kept(); ++i) { // which are counted here as they are copied
        byPort_[other.keptAt(i).port] -= 1;
    }
    Labels gone = other.labels_; // of frames that are not copied, without those that are
    const auto isCopied = [&gone](const RecordedFrame& frame) {
        if (const auto label = topLabel(frame.bytes())) {
            gone.remove(*label);
        }
    };
    if (other.wrapped_ > 0) {
        std::for_each<const RecordedFrame*>(other.next_, other.last_.data() + framesOfReason,
                                            isCopied);
    }
    if (other.seen() > framesOfReason) {
        isCopied(other.first_);
    }
    for (const Labels::Entry& entry : gone.top(~std::size_t{0}, other.second_)) {
        labels_.add(entry.key, static_cast<std::uint32_t>(entry.count), other.second_);
    }
}

void FrameRecorder::Log::clear() noexcept {
    next_ = last_.data();
    wrapped_ = 0;
    absorbed_ = 0;
    port_ = 0;
    portFrom_ = 0;
    std::fill(byPort_.begin(), byPort_.end(), 0);
    ownByPort_.clear();
    labels_ = {};
    inSecond_ = 0;
    second_ = 0;
}

void FrameRecorder::absorb(FrameRecorder& other) {
    for (const auto& theirs : other.logs_) {
        if (theirs->frames() == 0) {
            continue;
        }
        Log& log = logOf({theirs->kind, theirs->reason}, theirs->hash);
        log.absorbCounts(*theirs, theirs->kept());
        for (std::size_t i = 0; i < theirs->kept(); ++i) {
            const RecordedFrame& frame = theirs->keptAt(i);
            RecordedFrame& slot = begin(log, frame.port);
            const std::uint64_t sequence = slot.sequence;
            slot = frame;
            slot.sequence = sequence;
        }
        theirs->clear();
    }
}

} // namespace OvixAgent
