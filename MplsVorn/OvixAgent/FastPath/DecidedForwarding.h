#pragma once

#include <cstdint>
#include <span>

#include "FastPath/DecidedTables.h"
#include "FastPath/Departures.h"
#include "FastPath/IpHop.h"
#include "FastPath/LabelForwarding.h"
#include "State/Frame.h"

namespace OvixAgent {

/// Forwards frames by decisions, for one thread. A frame that fits none is left as it is.
class DecidedForwarding {
  public:
    /// Everything must outlive it. `decider` makes decisions that are missing; null: such frames
    /// are left. `own` is null for the packet thread.
    DecidedForwarding(DecidedTables& decided, Decider* decider, FrameAccounts& accounts,
                      OwnPorts* own)
        : decided_(&decided), accounts_(&accounts),
          ipHop_(*decided.tables, decided.lines, decided.hops, decider != nullptr),
          labels_(decided, decider, accounts, own, ipHop_) {}
    DecidedForwarding(const DecidedForwarding&) = delete;
    DecidedForwarding& operator=(const DecidedForwarding&) = delete;

    /// Loads what all frames of the burst will need, so that they wait for memory together.
    void loadAhead(std::span<const WritableFrame> burst) noexcept;

    /// Forwards frames from the first on until no decision fits one, which is left as it is.
    /// Returns how many.
    [[gnu::always_inline]] std::size_t forward(std::span<WritableFrame> burst) {
        LabelForwarding::Lane lane = labels_.lane();
        const Intake* const intakes = decided_->intakes.all();
        std::uint64_t bytes = 0;
        WritableFrame* frame = burst.data();
        for (WritableFrame* const end = frame + burst.size(); frame != end; ++frame) {
            if (!settleInPlace(intakes[frame->port], lane, *frame)) [[unlikely]] {
                if (!forwardAny(*frame)) {
                    break;
                }
                lane = labels_.lane(); // there may be a new decision
            }
            bytes += frame->size;
        }
        const auto done = static_cast<std::size_t>(frame - burst.data());
        accounts_->passed({done, bytes});
        return done;
    }
    /// The same of one frame, if it is as most are. False, and nothing is changed, for others.
    [[gnu::always_inline]] bool forwardOne(WritableFrame& frame) {
        if (!settleInPlace(decided_->intakes.all()[frame.port], labels_.lane(), frame)) {
            return false;
        }
        accounts_->passed({1, frame.size});
        return true;
    }
    /// The same of one frame of whatever kind.
    bool forwardOther(WritableFrame& frame) {
        if (!forwardAny(frame)) {
            return false;
        }
        accounts_->passed({1, frame.size});
        return true;
    }

    /// Sends what has been forwarded so far, and makes its counts visible.
    [[gnu::always_inline]] void settle() {
        labels_.settle();
        labels_.departures().flush();
    }

    LabelForwarding& labels() noexcept { return labels_; }

  private:
    /// With a link header and a label.
    static constexpr std::size_t shortest = Wire::Ethernet::size + Lumo::MplsLabelEntry::size;

    /// Whether a frame was captured whole, has room for a label, and is no longer than a packet may
    /// be.
    static bool isPlainLength(const WritableFrame& frame) noexcept {
        return frame.size - shortest <= Lumo::Pkt::maxBytes - shortest &&
               frame.size == frame.originalLength;
    }

    /// Most frames are untagged, and come in at a port without sub-interfaces.
    [[gnu::always_inline]] bool
    settleInPlace(const Intake& intake, const LabelForwarding::Lane& lane, WritableFrame& frame) {
        if (!isPlainLength(frame) || !intake.isForStation(frame.bytes)) [[unlikely]] {
            return false;
        }
        if (intake.takesPlainLabels(frame.bytes)) [[likely]] {
            return labels_.settleInPlace(lane, frame);
        }
        const auto etherType =
            Lumo::NetU16::load(frame.bytes + Wire::Ethernet::etherTypeAt).value();
        return etherType == Wire::EtherType::ipv4 && intake.takesPlainIp &&
               routeInPlace(intake, frame);
    }

    [[gnu::noinline]] bool forwardAny(WritableFrame& frame);
    bool forwardIp(PacketWork& work, Ovix::PktHdrType type);
    bool forwardCircuit(PacketWork work);
    bool routeInPlace(const Intake& intake, WritableFrame& frame);
    void loadRoutes(std::span<const WritableFrame> burst) noexcept;
    LabelForwarding::Destination destinationOf(const WritableFrame& frame) const noexcept;

    DecidedTables* decided_;
    FrameAccounts* accounts_;
    IpHop ipHop_;
    LabelForwarding labels_;
};

} // namespace OvixAgent
