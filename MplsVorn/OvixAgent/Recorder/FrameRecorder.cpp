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

void copyHead(RecordedFrame& slot, Wire::Bytes bytes) noexcept {
    slot.size = static_cast<std::uint8_t>(std::min(bytes.size(), RecordedFrame::mostBytes));
    std::copy_n(bytes.begin(), slot.size, slot.head.begin());
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
    return std::min<std::uint64_t>(placed(), places);
}

const RecordedFrame& FrameRecorder::Log::keptAt(std::size_t index) const noexcept {
    assert(index < kept());
    return placed() <= framesOfReason ? last_[index]
           : index == 0               ? first_
                                      : last_[(placed() + index - 1) % framesOfReason];
}

const RecordedFrame* FrameRecorder::Log::at(std::size_t place) const noexcept {
    if (place == 0) {
        return placed() > framesOfReason ? &first_ : nullptr;
    }
    return place - 1 < placed() ? &last_[place - 1] : nullptr;
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

void FrameRecorder::Log::countLabelAt(std::size_t place, Labels& in) const noexcept {
    const RecordedFrame& frame = last_[place];
    if (const auto label = topLabel(frame.bytes())) {
        in.add(*label, frame.standsFor, frame.time.seconds);
    }
}

// A frame's label is counted when its place is to be used again.
void FrameRecorder::Log::wrap() noexcept {
    if (wrapped_ == 0) {
        first_ = last_.front();
    }
    for (std::size_t i = 0; i < framesOfReason; ++i) {
        countLabelAt(i, labels_);
    }
    wrapped_ += framesOfReason;
    next_ = last_.data();
}

/// How many frames have been passed over since the last one that was kept.
std::uint32_t FrameRecorder::Log::endGap() noexcept {
    const std::uint32_t passed = gap_ - left_;
    passed_ += passed;
    gap_ = left_ = 0;
    return passed;
}

// Gaps are of different lengths, so that frames that come in turn are all met.
void FrameRecorder::Log::countOfSecond(std::int64_t second) noexcept {
    if (second != second_) {
        second_ = second;
        inSecond_ = 0;
    }
    if (++inSecond_ >= allOfSecond) {
        constexpr std::uint32_t leastGap = 127;
        random_ = random_ * 6364136223846793005 + 1442695040888963407;
        gap_ = left_ = leastGap + static_cast<std::uint32_t>(random_ >> 57U);
    }
}

RecordedFrame& FrameRecorder::Log::place(PortIndex port) {
    if (next_ == last_.data() + framesOfReason) {
        wrap();
    }
    if (port != port_) {
        portIs(port);
    }
    return *next_++;
}

std::vector<FrameRecorder::Labels::Entry> FrameRecorder::Log::topLabels(std::int64_t second) const {
    Labels all = labels_;
    for (std::size_t i = 0; i < static_cast<std::size_t>(next_ - last_.data()); ++i) {
        countLabelAt(i, all);
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

RecordedFrame& FrameRecorder::begin(Log& log, const CaptureTime& time, PortIndex port) {
    const std::uint32_t passed = log.endGap();
    RecordedFrame& slot = log.place(port);
    log.countOfSecond(time.seconds);
    sequence_ += passed + 1;
    slot.sequence = sequence_;
    slot.generation = generation_;
    slot.time = time;
    slot.port = port;
    slot.standsFor = static_cast<std::uint8_t>(passed + 1);
    return slot;
}

void FrameRecorder::keep(Log& log, const WritableFrame& frame, PortIndex port) {
    RecordedFrame& slot = begin(log, frame.time, port);
    slot.viaPort = RecordedVia::noPort;
    slot.viaNexthop = {};
    slot.length = frame.originalLength;
    copyHead(slot, {frame.bytes, frame.size});
}

void FrameRecorder::record(Log& log, const Frame& frame, const RecordedVia& via) {
    if (isPaused_) {
        return;
    }
    if (frame.isOwn) {
        log.ownByPort_.resize(std::max(log.ownByPort_.size(), frame.port + std::size_t{1}));
        ++log.ownByPort_[frame.port];
    }
    if (log.passesOver(frame.time.seconds, frame.port)) {
        return;
    }
    RecordedFrame& slot = begin(log, frame.time, frame.port);
    slot.viaPort = via.port;
    slot.viaNexthop = via.nexthop;
    slot.length = frame.originalLength;
    copyHead(slot, frame.bytes);
    if (via.nexthop.family() != Lumo::IpFamily::none && isForNeighbour(log.reason)) {
        unresolved_.add(via, slot.standsFor, frame.time.seconds);
    }
}

/// Of `taken` frames the other's places are copied.
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
            gone.remove(*label, frame.standsFor);
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
    passed_ = 0;
    gap_ = left_;
    port_ = 0;
    portFrom_ = 0;
    std::fill(byPort_.begin(), byPort_.end(), 0);
    ownByPort_.clear();
    labels_ = {};
}

void FrameRecorder::absorb(FrameRecorder& other) {
    for (const auto& theirs : other.logs_) {
        if (theirs->frames() == 0) {
            continue;
        }
        Log& log = logOf({theirs->kind, theirs->reason}, theirs->hash);
        log.absorbCounts(*theirs, theirs->kept());
        sequence_ += theirs->frames() - theirs->kept();
        for (std::size_t i = 0; i < theirs->kept(); ++i) {
            const RecordedFrame& frame = theirs->keptAt(i);
            RecordedFrame& slot = log.place(frame.port);
            slot = frame;
            slot.sequence = ++sequence_;
        }
        theirs->clear();
    }
}

} // namespace OvixAgent
