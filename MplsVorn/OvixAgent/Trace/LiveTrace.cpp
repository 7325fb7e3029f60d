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
    waiting_.clear();
    lines_.clear();
    ++changes_;
    Tessel::Changes::notice();
}

void LiveTrace::writeAllTo(std::function<void(std::string_view)> writer) {
    TraceFilter all;
    all.limit = ~std::uint64_t{0};
    start(all);
    end_ = Clock::time_point::max();
    writer_ = std::move(writer);
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
    return filter_.reason.empty() || (!kinds_.empty() && std::find(kinds_.begin(), kinds_.end(),
                                                                   kindOf(frame)) != kinds_.end());
}

void LiveTrace::follow(const Frame& frame, std::uint64_t number,
                       const std::function<void()>& process, const std::function<Fate()>& fate) {
    if (!isOn_ || frames_ >= filter_.limit || !filter_.matches(frame, *ports_)) {
        process();
        return;
    }
    const bool isFollowedNow = isFollowed(frame);
    if (isFollowedNow) {
        begin(frame, number);
        const Listening listening([this](const Ovix::RoadNote& step) { note(step); });
        process();
    } else {
        process();
    }
    const Fate became = fate();
    if (!isForReason(became)) {
        return;
    }
    if (isFollowedNow) {
        finish(frame);
    } else if (kinds_.size() < mostKinds) { // others are known by now
        begin(frame, number);
        addFirst(frame, became);
    }
}

void LiveTrace::begin(const Frame& frame, std::uint64_t number) {
    head_ = fmt::format("frame {} {}", number, ports_->ports()[frame.port].name);
    table_ = std::string(noTable);
    steps_.clear();
    waits_ = false;
}

/// "frame 17 west transit choice: via 0, vias 2".
void LiveTrace::note(const Ovix::RoadNote& note) {
    waits_ = waits_ || note.step == "waits";
    if (const std::string* const table = note.value("table")) {
        table_ = *table;
    }
    std::string text;
    for (const Ovix::RoadNote::Field& field : note.fields) {
        if (!field.value.empty() && field.name != "table") {
            // The step's name, too.
            const bool isNamed = field.name == "fate" || field.name == "answer";
            text += fmt::format("{}{}{}", text.empty() ? "" : ", ",
                                isNamed ? "" : fmt::format("{} ", field.name), field.value);
        }
    }
    add(note.step, text);
}

void LiveTrace::add(std::string_view step, std::string_view text) {
    std::string line =
        fmt::format("{} {} {}{}{}", head_, table_, step, text.empty() ? "" : ": ", text);
    if (writer_) {
        writer_(line);
    } else {
        steps_.push_back(std::move(line));
    }
}

bool LiveTrace::isForReason(const Fate& fate) const noexcept {
    return filter_.reason.empty() || (fate.kind != FateKind::forwarded &&
                                      fate.reason.find(filter_.reason) != std::string_view::npos);
}

void LiveTrace::addFirst(const Frame& frame, const Fate& fate) {
    add("fate", fmt::format("{}, reason {}; the next ones from this port with this label are "
                            "traced",
                            Tessel::wordOf(fate.kind), fate.reason));
    kinds_.push_back(kindOf(frame));
    keepSteps();
}

void LiveTrace::finish(const Frame& frame) {
    if (waits_ && waiting_.size() < mostWaiting) {
        waiting_.push_back(Waiting::of(frame, fmt::format("{} {}", head_, table_)));
    }
    keepSteps();
    ++frames_;
    stopIfComplete();
}

void LiveTrace::keepSteps() {
    for (std::string& line : steps_) {
        keep(std::move(line));
    }
    steps_.clear();
}

void LiveTrace::settled(const Frame& frame, const Fate& fate) {
    const auto found = std::find_if(waiting_.begin(), waiting_.end(),
                                    [&](const Waiting& waiting) { return waiting.isOf(frame); });
    if (found == waiting_.end()) {
        return;
    }
    std::string line = fmt::format("{} settled: {}{}{}", found->head, Tessel::wordOf(fate.kind),
                                   fate.reason.empty() ? "" : ", reason ", fate.reason);
    waiting_.erase(found);
    if (writer_) {
        writer_(line);
    } else {
        keep(std::move(line));
    }
    stopIfComplete();
}

/// The last frames asked for may still wait.
void LiveTrace::stopIfComplete() {
    if (frames_ >= filter_.limit && waiting_.empty()) {
        stop();
    }
}

void LiveTrace::keep(std::string line) {
    if (lines_.size() == mostLines) {
        lines_.pop_front();
    }
    lines_.push_back(std::move(line));
    ++lineNumber_;
}

} // namespace OvixAgent
