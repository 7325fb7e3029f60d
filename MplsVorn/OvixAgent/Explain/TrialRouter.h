#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Answers/CpuAnswers.h"
#include "Capture/CapturedLoopback.h"
#include "Explain/Situation.h"
#include "Forwarding/Forwarder.h"
#include "Ip/SharedIpRoutes.h"
#include "Ovix/trace/RoadNotes.h"
#include "State/ForwardingTables.h"
#include "Tables/AgentState.h"

namespace OvixAgent {

/// What became of a frame, and all that it met.
struct Walk {
    struct Sent {
        std::string port; ///< or "cpu", or "lo" for an exception frame
        std::vector<std::uint8_t> bytes;
        std::uint32_t originalLength = 0;

        friend bool operator==(const Sent&, const Sent&) = default;
    };

    FateKind kind = FateKind::dropped;
    bool isWaiting = false; ///< until its neighbour is known; `kind` is forwarded then
    std::string reason;     ///< empty when forwarded
    std::vector<Sent> sent;
    /// Its own, then one of kind "reply" for each answer of this router to it.
    std::vector<Ovix::RoadNote> notes;
    std::vector<std::string> trace; ///< the plugin's own lines

    bool isForwarded() const noexcept { return kind == FateKind::forwarded && !isWaiting; }
    std::string_view fateWord() const noexcept {
        return isWaiting ? "waiting" : Tessel::wordOf(kind);
    }
    /// The note of that kind that came last; null when there is none.
    const Ovix::RoadNote* last(std::string_view step) const noexcept;
    /// Whether the same became of the frame, whatever it met.
    bool isSameOutcome(const Walk& other) const {
        return kind == other.kind && reason == other.reason && sent == other.sent;
    }
};

/// An agent on ports that keep what they are given: the very code that forwards, by a situation.
/// One at a time in a process.
class TrialRouter {
  public:
    /// Refuses what the tables or the plugin refuse of the situation; throws what the system
    /// refuses.
    static Tessel::Result<std::unique_ptr<TrialRouter>> of(const Situation& situation);
    ~TrialRouter();
    TrialRouter(const TrialRouter&) = delete;
    TrialRouter& operator=(const TrialRouter&) = delete;

    /// Forwards the frame by the definition, with notes and traces on.
    Walk walk(const GivenFrame& frame);

    /// What the fast path does with the frame.
    enum class FastRoad : std::uint8_t {
        same,    ///< forwards it by a decision, and as the definition does
        differs, ///< does not do as the definition does
        leaves,  ///< leaves it to the definition
    };
    FastRoad fastRoad(const GivenFrame& frame);

    const ForwardingTables& tables() const noexcept { return *tables_; }
    const Mpls::PublishedTables& published() const noexcept { return state_->tables(); }

  private:
    class KeptPort;
    class Notes;

    explicit TrialRouter(const Situation& situation);
    Tessel::Result<Ptr<Tessel::TableReader>> labelTables(const Situation& situation);
    Tessel::Result<void> start(const Situation& situation);
    void takeShared();
    std::vector<Walk::Sent> takeSent();
    void forwardAnswers(Walk& walk);

    AgentConfig config_;
    std::unique_ptr<Mpls::TablePublisher> changed_;
    std::unique_ptr<AgentState> state_;
    std::unique_ptr<ForwardingTables> tables_;
    std::vector<Walk::Sent> sent_;
    std::vector<std::unique_ptr<KeptPort>> ports_; ///< then the CPU and the loopback interface
    std::unique_ptr<CpuAnswers> answers_;
    std::unique_ptr<Forwarder> forwarder_;
    std::unique_ptr<CapturedLoopback> loopback_;
    std::optional<SharedIpRoutes> ipRoutes_;
    Frame current_;
};

} // namespace OvixAgent

template <>
inline constexpr auto Tessel::words<OvixAgent::TrialRouter::FastRoad> =
    std::to_array<Tessel::Word<OvixAgent::TrialRouter::FastRoad>>({
        {"same", OvixAgent::TrialRouter::FastRoad::same},
        {"differs", OvixAgent::TrialRouter::FastRoad::differs},
        {"leaves it", OvixAgent::TrialRouter::FastRoad::leaves},
    });
