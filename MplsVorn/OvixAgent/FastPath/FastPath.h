#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "FastPath/CircuitForwarding.h"
#include "FastPath/Departures.h"
#include "FastPath/EgressLines.h"
#include "FastPath/IpHop.h"
#include "FastPath/LabelForwarding.h"
#include "Forwarding/Forwarder.h"
#include "Ovix/plugin/PluginManager.h"
#include "Published/PublishedTables.h"
#include "State/ForwardingTables.h"
#include "State/Frame.h"
#include "Tessel/Changes.h"

namespace OvixAgent {

/// Forwards frames in bursts: by decisions made once per label where that is exact, all others by
/// the forwarder, which defines what is right. Bytes, ports, counters and their order are the same
/// either way.
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
    void isOnIs(bool on) noexcept {
        isOn_ = on;
        Tessel::Changes::notice();
    }

    /// The frame that the forwarder is processing, or has processed last; its bytes may be gone
    /// then. The same object all the time.
    const Frame& current() const noexcept { return current_; }

    /// Frames by decisions, and by the forwarder.
    struct Counts {
        std::uint64_t fast = 0;
        std::uint64_t slow = 0;
    };
    const Counts& counts() const noexcept { return counts_; }

  private:
    /// What is fixed about a port between two configurations.
    struct Intake {
        const Port* port = nullptr;
        bool isPlain = false; ///< takes labelled frames, and no tags
        bool takesLabels = false;
        bool takesIp = false;
        bool isCircuit = false;
        bool hasVlans = false; ///< sub-interfaces
        bool isVlan = false;   ///< a sub-interface, at which no frame comes in itself
        std::uint32_t fib = 0; ///< number of its VRF
    };

    void takeChanges();
    void readPorts();
    void prefetch(std::span<const WritableFrame> burst, std::size_t at) const noexcept;
    void settle();
    bool forwardPlain(WritableFrame& frame);
    bool forward(WritableFrame& frame);
    std::optional<std::uint16_t> takeIn(PacketWork& work) const;
    bool findSubInterface(PacketWork& work) const;
    bool forwardIp(PacketWork& work, Ovix::PktHdrType type);

    Forwarder* forwarder_;
    ForwardingTables* tables_;
    Ptr<Ovix::AllGenericPipelineSteps> inputSteps_;
    Departures departures_;
    IpHop ipHop_;
    EgressLines lines_;
    LabelForwarding labels_;
    CircuitForwarding circuits_;
    std::vector<Intake> intakes_;            ///< by port
    std::uint64_t seen_ = ~std::uint64_t{0}; ///< count of changes
    bool isUsable_ = false;                  ///< decisions are
    std::uint64_t version_ = ~std::uint64_t{0};
    Frame current_;
    Counts counts_;
    bool isOn_ = true;
};

} // namespace OvixAgent
