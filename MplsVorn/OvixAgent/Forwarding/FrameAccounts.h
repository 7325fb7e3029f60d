#pragma once

#include <vector>

#include "Ovix/trace/NamedCounters.h"
#include "Recorder/FrameRecorder.h"
#include "State/Fate.h"
#include "Summary/Summary.h"

namespace OvixAgent {

/// Counts the frames received and their fates: every frame once, its copies as replicas. Those that
/// were not forwarded are recorded.
class FrameAccounts {
  public:
    void received(std::size_t bytes) {
        in_.add(bytes);
        counters_->forgetLast();
    }
    /// The same of frames that are accounted for elsewhere.
    void passed(const Traffic& frames) noexcept { in_ += frames; }
    /// Where a fate is counted and its frames are recorded, for whoever does that elsewhere.
    struct FateLog {
        Ovix::OvixNamedCounters::Counter* counter = nullptr;
        FrameRecorder::Log* frames = nullptr;
    };
    FateLog logOf(const Fate& fate);
    /// The number of the frame received last, from 1.
    std::uint64_t number() const noexcept { return in_.frames; }
    /// The frame received last is to be received again.
    void takeBack(std::size_t bytes);

    /// What has been forwarded is counted where it left. `via` is where the frame would have left.
    /// Returns the fate with a reason that stays.
    Fate add(const Fate& fate, const Frame& received, const RecordedVia& via);
    void addReplicas(std::uint64_t copies) noexcept { replicas_ += copies; }
    std::uint64_t replicas() const noexcept { return replicas_; }
    /// Packets that a plugin has sent to the CPU are copies of the frame like those for its
    /// `nexthops`; without next hops the first of them counts as the frame itself.
    void addDelivered(std::uint64_t packets, std::size_t nexthops, const Frame& received);

    /// Whether a plugin has counted an event for the current frame.
    bool hasLastEvent() const noexcept { return counters_->last() != nullptr; }
    /// The event counted last for the current frame, or `otherwise` without one, as its reason.
    Fate byLastEvent(FateKind kind, std::string_view otherwise) const noexcept;

    /// All that is counted here; counters in the order in which they were first counted.
    struct Counts {
        Traffic in;
        std::uint64_t replicas = 0;
        std::vector<std::uint64_t> events; ///< what plugins count
        std::vector<std::uint64_t> fates;
        bool operator==(const Counts&) const = default;
    };
    Counts counts() const;
    /// Sets all counts back to what they were; counters that are newer have then counted nothing.
    void setBack(const Counts& counts);

    /// Counts what `other` has counted, and takes over the frames that it has recorded; it starts
    /// over. Reasons are the same.
    void absorb(FrameAccounts& other);

    FrameRecorder& recorder() noexcept { return recorder_; }
    const FrameRecorder& recorder() const noexcept { return recorder_; }

    /// What plugins count.
    const Ptr<Ovix::OvixNamedCounters>& counters() const noexcept { return counters_; }

    /// Frames of each fate and reason, in the order in which they were first counted.
    std::vector<std::uint64_t> fateCounts() const { return countsOf(*fates_); }
    /// Sets frames, replicas, fates and their reasons, and named counters.
    void addTo(Summary& summary) const;
    /// The fates and their reasons since they were these.
    void addFatesTo(Summary& summary, const std::vector<std::uint64_t>& before) const;

  private:
    static std::vector<std::uint64_t> countsOf(const Ovix::OvixNamedCounters& counters);

    Ptr<Ovix::OvixNamedCounters> counters_ = Tessel::make<Ovix::OvixNamedCounters>();
    /// One count per fate and reason.
    Ptr<Ovix::OvixNamedCounters> fates_ = Tessel::make<Ovix::OvixNamedCounters>();
    FrameRecorder recorder_;
    Traffic in_;
    std::uint64_t replicas_ = 0;
};

} // namespace OvixAgent
