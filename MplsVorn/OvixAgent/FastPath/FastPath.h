#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "FastPath/Decider.h"
#include "FastPath/DecisionTable.h"
#include "FastPath/EgressLines.h"
#include "FastPath/EventSets.h"
#include "FastPath/IpHop.h"
#include "FastPath/PacketWork.h"
#include "FastPath/SendBatch.h"
#include "Forwarding/Forwarder.h"
#include "Ovix/plugin/PluginManager.h"
#include "Published/PublishedTables.h"
#include "State/ForwardingTables.h"
#include "State/Frame.h"

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
    void isOnIs(bool on) noexcept { isOn_ = on; }

    /// Frames by decisions, and by the forwarder; labels decided.
    struct Counts {
        std::uint64_t fast = 0;
        std::uint64_t slow = 0;
        std::uint64_t decided = 0;
    };
    const Counts& counts() const noexcept { return counts_; }

    /// The frame that the forwarder is processing, or has processed last; its bytes may be gone
    /// then. The same object all the time.
    const Frame& current() const noexcept { return current_; }

  private:
    /// What is fixed about the frames of a port between two configurations.
    struct Intake {
        bool takesLabels = false;
        bool takesIp = false;
        std::uint32_t fib = 0; ///< number of its VRF
    };
    /// The lookups of the labels beneath the top one.
    struct InnerLookups {
        std::array<std::uint16_t, 16> sets;
        std::size_t count = 0;
    };

    bool isReady();
    void readPorts();
    void prefetch(std::span<const WritableFrame> burst, std::size_t at) const noexcept;
    bool forward(WritableFrame& frame);
    bool isForUs(const WritableFrame& frame, const Port& port) const noexcept;
    bool forwardLabelled(WritableFrame& frame);
    bool forwardIp(WritableFrame& frame, Ovix::PktHdrType type);
    const Decision* decisionFor(std::uint32_t label, Wire::Bytes packet);
    const Decision* decidedBeneath(const Decision& decision, std::uint32_t label,
                                   Ovix::Beneath beneath);
    bool follow(Decision decision, const Decision& top, PacketWork& work);
    bool followSwap(Decision decision, const Decision& top, PacketWork& work);
    bool followRewrite(Decision decision, const Decision& top, PacketWork& work);
    bool followLookup(Decision decision, const Decision& top, PacketWork& work);
    bool followDrop(Decision decision, const Decision& top, PacketWork& work);
    const Decision& chosen(const Decision& decision, const PacketWork& work);
    bool lookUpInner(const PacketWork& work, InnerLookups& inner);
    void countLookups(const Decision& top, const InnerLookups& inner);
    void countLabel(std::uint32_t label, const WritableFrame& frame);
    void send(const PacketWork& work, const EgressLine& line);
    bool mayDecide() noexcept;

    Forwarder* forwarder_;
    ForwardingTables* tables_;
    Ptr<Ovix::AllGenericPipelineSteps> inputSteps_;
    EventSets events_;
    EgressLines lines_;
    DecisionTable decisions_;
    Decider decider_;
    IpHop ipHop_;
    SendBatch sent_;
    std::vector<Intake> intakes_; ///< by port
    std::uint64_t version_ = ~std::uint64_t{0};
    std::uint32_t credit_ = 0;
    Frame current_;
    Counts counts_;
    bool isOn_ = true;
};

} // namespace OvixAgent
