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
        : decided_(&decided), departures_(accounts, own),
          ipHop_(*decided.tables, decided.lines, decided.hops, decider != nullptr),
          labels_(decided, decider, accounts.counters(), ipHop_, departures_) {}
    DecidedForwarding(const DecidedForwarding&) = delete;
    DecidedForwarding& operator=(const DecidedForwarding&) = delete;

    /// Loads what all frames of the burst will need, so that they wait for memory together.
    void loadAhead(std::span<const WritableFrame> burst) noexcept;

    /// False, and nothing is changed, when no decision fits the frame.
    [[gnu::always_inline]] bool forward(WritableFrame& frame) {
        const Intake& intake = decided_->intakes[frame.port];
        if (!isPlainLength(frame) || !intake.isForStation(frame.bytes)) [[unlikely]] {
            return forwardAny(frame);
        }
        // Most frames are untagged, and come in at a port without sub-interfaces.
        const auto etherType =
            Lumo::NetU16::load(frame.bytes + Wire::Ethernet::etherTypeAt).value();
        if (etherType == Wire::EtherType::mpls && intake.takesPlainLabels) [[likely]] {
            return labels_.settleInPlace(frame) || forwardLabels(frame);
        }
        return (etherType == Wire::EtherType::ipv4 && intake.takesPlainIp &&
                routeInPlace(intake, frame)) ||
               forwardAny(frame);
    }

    /// Sends what has been forwarded so far, and makes its counts visible.
    void settle() {
        labels_.settle();
        departures_.flush();
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

    bool forwardAny(WritableFrame& frame);
    bool forwardLabels(WritableFrame& frame);
    bool forwardIp(PacketWork& work, Ovix::PktHdrType type);
    bool forwardCircuit(PacketWork work);
    bool routeInPlace(const Intake& intake, WritableFrame& frame);
    void loadRoutes(std::span<const WritableFrame> burst) noexcept;
    LabelForwarding::Destination destinationOf(const WritableFrame& frame) const noexcept;

    DecidedTables* decided_;
    Departures departures_;
    IpHop ipHop_;
    LabelForwarding labels_;
};

} // namespace OvixAgent
