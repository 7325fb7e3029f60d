#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "Ovix/trace/RoadNotes.h"
#include "State/Fate.h"
#include "Trace/TraceFilter.h"

namespace OvixAgent {

/// Traces some of the frames while others are forwarded: a line for each step of the plugin's half
/// of the road and of the agent's. Ends by itself. Used by the packet thread alone.
///
/// Whether a frame goes nowhere for some reason is known only afterwards, and tracing every frame
/// would hold up the others. So the first frame that does makes one line, and from then on those
/// that come in at the same port with the same label are traced.
class LiveTrace {
  public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::size_t mostLines = 10'000;

    /// The ports must outlive it.
    explicit LiveTrace(const PortTable& ports) noexcept : ports_(&ports) {}
    LiveTrace(const LiveTrace&) = delete;
    LiveTrace& operator=(const LiveTrace&) = delete;
    ~LiveTrace();

    /// Takes the place of a trace that goes on, and of the lines that there are.
    void start(TraceFilter filter, Clock::time_point now = Clock::now());
    void stop();
    /// Stops it when its time is over.
    void timeIs(Clock::time_point now) {
        if (isOn_ && now >= end_) {
            stop();
        }
    }

    /// Traces all frames from now on, and writes each line as it is made instead of keeping it.
    void writeAllTo(std::function<void(std::string_view)> writer);
    /// Whether all are written: no other trace may be started then.
    bool isWritten() const noexcept { return static_cast<bool>(writer_); }

    bool isOn() const noexcept { return isOn_; }
    const TraceFilter& filter() const noexcept { return filter_; }
    /// Moves on with each start and stop.
    std::uint64_t changes() const noexcept { return changes_; }

    /// Has a frame processed, the `number`th, by `process`, and traces it if it is one of those
    /// asked for. `fate` is what became of it. Throws what `process` throws.
    void follow(const Frame& frame, std::uint64_t number, const std::function<void()>& process,
                const std::function<Fate()>& fate);

    /// What has become of the packet of a frame that has waited for its neighbour: one more line,
    /// if the frame was traced.
    void settled(const Frame& frame, const Fate& fate);

    /// Lines without ends. The oldest are left out when they are too many.
    const std::deque<std::string>& lines() const noexcept { return lines_; }
    /// The number of the line behind the last, from 0 when the process started.
    std::uint64_t end() const noexcept { return lineNumber_; }
    std::uint64_t frames() const noexcept { return frames_; }

  private:
    struct Kind {
        PortIndex port;
        std::uint32_t label; ///< none: a number that no label has
        bool operator==(const Kind&) const = default;
    };
    static constexpr std::size_t mostKinds = 64;
    /// A frame that was traced, whose packet waits for its neighbour.
    struct Waiting {
        CaptureTime time;
        PortIndex port;
        std::uint32_t size;
        std::string head; ///< of its line
        static Waiting of(const Frame& frame, std::string head) {
            return {frame.time, frame.port, frame.originalLength, std::move(head)};
        }
        bool isOf(const Frame& frame) const noexcept {
            return time == frame.time && port == frame.port && size == frame.originalLength;
        }
    };
    static constexpr std::size_t mostWaiting = 256;
    static Kind kindOf(const Frame& frame) noexcept;

    bool isFollowed(const Frame& frame) const;
    void begin(const Frame& frame, std::uint64_t number);
    void note(const Ovix::RoadNote& note);
    bool isForReason(const Fate& fate) const noexcept;
    /// The first frame of its kind, of which nothing but its fate is known, and which does not
    /// count as traced.
    void addFirst(const Frame& frame, const Fate& fate);
    void finish(const Frame& frame);
    void keepSteps();
    void stopIfComplete();
    void add(std::string_view step, std::string_view text);
    void keep(std::string line);

    const PortTable* ports_;
    bool isOn_ = false;
    TraceFilter filter_;
    Clock::time_point end_;
    std::uint64_t changes_ = 0;
    std::vector<Kind> kinds_; ///< of frames that went nowhere for the reason
    std::uint64_t frames_ = 0;
    std::deque<std::string> lines_;
    std::uint64_t lineNumber_ = 0;
    // Of the frame that is followed.
    std::string head_;  ///< its number and port
    std::string table_; ///< that was asked last
    std::vector<std::string> steps_;
    bool waits_ = false;
    std::deque<Waiting> waiting_;
    std::function<void(std::string_view)> writer_; ///< empty: lines are kept
};

} // namespace OvixAgent
