#pragma once

#include <cstdint>
#include <span>

#include "Forwarding/Forwarder.h"
#include "Ovix/plugin/PluginManager.h"
#include "Published/PublishedTables.h"
#include "State/ForwardingTables.h"
#include "State/Frame.h"

namespace OvixAgent {

/// Forwards frames in bursts: by decisions made once per label where that is exact, all others by
/// the forwarder, which defines what is right.
class FastPath {
  public:
    /// Everything must outlive it; the plugins behind `manager` must be active.
    FastPath(Forwarder& forwarder, const Ptr<Ovix::PluginManager>& manager,
             ForwardingTables& tables, Mpls::PublishedTables& published);

    /// Processes the frames in order, each as the forwarder alone would, by the generation of the
    /// label tables that is held. Returns how many: fewer than given when that generation is lost;
    /// the tables are then to be refreshed and the rest is to be passed again. Throws CaptureError
    /// when an output cannot be written.
    std::size_t receive(std::span<WritableFrame> burst);

    /// While off, the forwarder processes every frame. On at first.
    void isOnIs(bool on) noexcept { isOn_ = on; }

    /// Frames by decisions, and by the forwarder.
    struct Counts {
        std::uint64_t fast = 0;
        std::uint64_t slow = 0;
    };
    const Counts& counts() const noexcept { return counts_; }

  private:
    Forwarder* forwarder_;
    Counts counts_;
    bool isOn_ = true;
};

} // namespace OvixAgent
