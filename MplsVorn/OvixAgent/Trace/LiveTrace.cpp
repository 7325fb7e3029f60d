#include "Trace/LiveTrace.h"

#include <algorithm>
#include <fmt/format.h>

#include "Recorder/FrameRecorder.h"
#include "Tessel/Changes.h"

namespace OvixAgent {

namespace {

constexpr std::string_view noTable = "-";

/// Hears of steps while it lives.
class Listening {
  public:
    explicit Listening(Ovix::RoadNotes::Listener listener) {
        Ovix::RoadNotes::listenerIs(std::move(listener));
    }
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;
    ~Listening() { Ovix::RoadNotes::listenerIs({}); }
};

} // namespace

LiveTrace::~LiveTrace() {
    stop();
}

void LiveTrace::start(TraceFilter filter, Clock::time_point now) {
    filter_ = std::move(filter);
    end_ = now + filter_.time;
    isOn_ = true;
    frames_ = 0;
    kinds_.clear();
    lines_.clear();
    ++changes_;
    Tessel::Changes::notice();
}

void LiveTrace::stop() {
    if (isOn_) {
        isOn_ = false;
        ++changes_;
        Tessel::Changes::notice();
    }
}

LiveTrace::Kind LiveTrace::kindOf(const Frame& frame) noexcept {
    return {frame.port, topLabel(frame.bytes).value_or(~std::uint32_t{0})};
}

bool LiveTrace::isFollowed(const Frame& frame) const {
    return filter_.reason.empty() ||
           std::find(kinds_.begin(), kinds_.end(), kindOf(frame)) != kinds_.end();
}

void LiveTrace::follow(const Frame& frame, std::uint64_t number,
                       const std::function<void()>& process, const std::function<Fate()>& fate) {
    if (!isOn_ || !filter_.matches(frame, *ports_)) {
        process();
        return;
    }
    begin(frame, number);
    const bool isFollowedNow = isFollowed(frame);
    if (isFollowedNow) {
        const Listening listening([this](const Ovix::RoadNote& step) { note(step); });
        process();
    } else {
        process();
    }
    finish(frame, fate(), isFollowedNow);
}

void LiveTrace::begin(const Frame& frame, std::uint64_t number) {
    head_ = fmt::format("frame {} {}", number, ports_->ports()[frame.port].name);
    table_ = noTable;
    held_.clear();
}

/// "frame 17 west transit choice: via 0, vias 2".
void LiveTrace::note(const Ovix::RoadNote& note) {
    if (const std::string* const table = note.value("table")) {
        table_ = *table;
    }
    std::string text;
    for (const Ovix::RoadNote::Field& field : note.fields) {
        if (!field.value.empty() && field.name != "table") {
            text += fmt::format("{}{} {}", text.empty() ? "" : ", ", field.name, field.value);
        }
    }
    tell(note.step, text);
}

void LiveTrace::tell(std::string_view step, std::string_view text) {
    held_.push_back(
        fmt::format("{} {} {}{}{}", head_, table_, step, text.empty() ? "" : ": ", text));
}

/// A frame that waits for its neighbour, and the copies of one that is replicated, have told their
/// fates as far as they have one.
void LiveTrace::finish(const Frame& frame, const Fate& fate, bool wasFollowed) {
    const bool isForReason =
        filter_.reason.empty() || (fate.kind != FateKind::forwarded &&
                                   fate.reason.find(filter_.reason) != std::string_view::npos);
    if (!isForReason) {
        return;
    }
    if (!wasFollowed) {
        tell("fate", fmt::format("{} {}; the next like it are followed", Tessel::wordOf(fate.kind),
                                 fate.reason));
        if (kinds_.size() < mostKinds) {
            kinds_.push_back(kindOf(frame));
        }
    }
    for (std::string& line : held_) {
        add(std::move(line));
    }
    held_.clear();
    if (++frames_ >= filter_.limit) {
        stop();
    }
}

void LiveTrace::add(std::string line) {
    if (lines_.size() == mostLines) {
        lines_.pop_front();
    }
    lines_.push_back(std::move(line));
    ++lineNumber_;
}

} // namespace OvixAgent
