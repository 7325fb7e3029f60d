#pragma once

#include <vector>

#include "State/Fate.h"
#include "State/ForwardingTables.h"
#include "State/Frame.h"

namespace OvixAgent {

/// Finds the port that a received frame is for: the one that it came in at, or a VLAN sub-interface
/// of that (IEEE 802.1Q), whose tags are then removed.
class FrameIntake {
  public:
    /// The tables must outlive the intake.
    explicit FrameIntake(const ForwardingTables& tables) noexcept : tables_(&tables) {}

    /// Forwarded: `frame` is to be processed at its port; until the next call it may refer to bytes
    /// kept here. The frames of an attachment circuit are for stations behind it.
    Fate admit(Frame& frame);

    /// The frame as it came in, for the CPU: with the tags that admit() removed, at the port that
    /// it is for.
    Frame asReceived(const Frame& frame) const noexcept;

  private:
    Fate findSubInterface(Frame& frame);
    void removeTags(Frame& frame, std::size_t tags);

    const ForwardingTables* tables_;
    Frame tagged_;                       ///< the frame whose tags were removed last
    std::vector<std::uint8_t> untagged_; ///< its bytes without them
};

} // namespace OvixAgent
