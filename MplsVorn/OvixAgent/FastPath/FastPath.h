#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "FastPath/DecidedForwarding.h"
#include "FastPath/DecidedTables.h"
#include "FastPath/Decider.h"
#include "FastPath/SelfCheck.h"
#include "Forwarding/Forwarder.h"
#include "Ovix/plugin/PluginManager.h"
#include "Published/PublishedTables.h"
#include "State/ForwardingTables.h"
#include "State/Frame.h"
#include "Tessel/Changes.h"
#include "Trace/LiveTrace.h"

namespace OvixAgent {

/// Forwards frames in bursts: by decisions made once per label where that is exact, all others by
/// the forwarder, which defines what is right. Bytes, ports, counters and their order are the same
/// either way.
class FastPath {
  public:
    /// Everything must outlive it; the plugins behind `manager` must be active.
    FastPath(Forwarder& forwarder, const Ptr<Ovix::PluginManager>& manager,
             ForwardingTables& tables, Mpls::PublishedTables& published);
    FastPath(const FastPath&) = delete;
    FastPath& operator=(const FastPath&) = delete;
    ~FastPath() { tables_->gate.beforeOpeningIs({}); }

    /// Processes the frames in order, each as the forwarder alone would, by the generation of the
    /// label tables that is held. Returns how many: fewer than given when that generation is lost;
    /// the tables are then to be refreshed and the rest is to be passed again. Throws CaptureError
    /// when an output cannot be written.
    std::size_t receive(std::span<WritableFrame> burst);

    /// While off, the forwarder processes every frame. On at first.
    void isOnIs(bool on) noexcept {
        isOn_ = on;
        Tessel::Changes::notice();
    }

    /// Has every so many-th frame forwarded both ways, of which the forwarder's counts, and
    /// compares them; 0: none. A difference is counted and reported as a line of text, and all
    /// decisions are made anew.
    void checkEveryIs(std::uint64_t frames, std::function<void(const std::string&)> report) {
        checkEvery_ = frames;
        untilCheck_ = frames > 0 ? frames - 1 : 0;
        plain_ = noCount;
        reportDifference_ = std::move(report);
    }

    /// The trace that follows some of the frames; it must outlive this. Frames that it asks for go
    /// to the forwarder, and others take as long as without it.
    void traceIs(LiveTrace& trace) noexcept { trace_ = &trace; }

    /// The frame that the forwarder is processing, or has processed last; its bytes may be gone
    /// then. The same object all the time.
    const Frame& current() const noexcept { return current_; }

    // Where other threads forward by the decisions, this one makes them, and has the forwarder
    // process what they leave.

    /// From now on decisions are made ahead, for all labels of the tables, and what changes is
    /// taken over before others forward by it: while the gate is closed.
    DecidedTables& shared();
    /// What is called, while nobody forwards, before frames that were left until now may be
    /// forwarded: before a label has its first decision, or a neighbour is known. What others have
    /// left must then be on its way.
    void settleIs(std::function<void()> settle) { settle_ = std::move(settle); }
    /// Takes over what has changed, and decides for some of the labels and IP routes that wait for
    /// it. Returns whether more wait.
    bool decideAhead();
    /// Has the forwarder process a frame that another thread has left. False when the tables must
    /// be refreshed first.
    bool receiveLeft(const WritableFrame& frame);
    /// What labels are counted in; empty when they are not.
    Ptr<Counter::OvixLfibCounterCollection> labelCounters() const { return decider_.countedIn(); }
    /// Whether a table has the label, as far as that is decided.
    bool isFound(std::uint32_t label) noexcept { return decided_.decisions.at(label).isFound; }
    /// Frames that others have forwarded by the decisions.
    void addFast(std::uint64_t frames) noexcept { counts_.fast += frames; }

    /// Frames by decisions, and by the forwarder.
    struct Counts {
        std::uint64_t fast = 0;
        std::uint64_t slow = 0;
        std::uint64_t checked = 0;   ///< of the slow: compared with the decision for them
        std::uint64_t different = 0; ///< of the checked
    };
    const Counts& counts() const noexcept { return counts_; }
    /// Decisions made for labels, anew after changes included.
    std::uint64_t decided() const noexcept { return decider_.decided(); }

  private:
    std::size_t receiveOther(std::span<WritableFrame> burst);
    [[gnu::noinline]] std::size_t forwardOther(WritableFrame& frame);
    std::size_t forwardPlain(std::span<WritableFrame> burst);
    std::size_t forwardMixed(std::span<WritableFrame> burst);
    std::size_t forwardAll(std::span<WritableFrame> burst);
    std::size_t checkSome(std::span<WritableFrame> burst);
    bool check(WritableFrame& frame);
    std::size_t forwardAround(std::span<WritableFrame> burst);
    void forwardTraced();
    void takeChanges();
    void settleLeft();
    bool mayBeOvertaken() const noexcept;
    void takeTrace();
    void voidAll();
    void forwardByDefinition(const WritableFrame& frame);
    void askAhead();
    void awaitLabels(Wire::Bytes frame);

    Forwarder* forwarder_;
    ForwardingTables* tables_;
    const Mpls::PublishedTables* published_;
    DecidedTables decided_;
    Decider decider_;
    DecidedForwarding road_;
    static constexpr std::uint64_t noCount = ~std::uint64_t{0};
    std::uint64_t seen_ = noCount;  ///< count of changes
    std::uint64_t plain_ = noCount; ///< the same, when no frames are searched for or checked
    std::uint64_t version_ = ~std::uint64_t{0};
    LiveTrace* trace_ = nullptr;
    std::uint64_t seenTrace_ = 0; ///< its changes
    bool tracesAll_ = false;
    FewBursts searched_;
    std::vector<Decider::Asked> asked_; ///< to be decided next
    Frame current_;
    Counts counts_;
    bool isOn_ = true;
    SelfCheck check_;
    std::uint64_t checkEvery_ = 0;
    std::uint64_t untilCheck_ = 0; ///< frames before the next to be checked
    std::function<void(const std::string&)> reportDifference_;
    std::function<void()> settle_;
};

} // namespace OvixAgent
