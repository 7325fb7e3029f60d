#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "FastPath/DecidedTables.h"
#include "FastPath/Decider.h"
#include "FastPath/Departures.h"
#include "FastPath/IpHop.h"
#include "FastPath/PacketWork.h"
#include "Tessel/Prefetch.h"

namespace OvixAgent {

/// Forwards labelled packets by the decisions for their labels.
class LabelForwarding {
  public:
    /// Everything must outlive it. `decider` makes decisions that are missing; null: such frames
    /// are for the forwarder.
    LabelForwarding(DecidedTables& decided, Decider* decider,
                    const Ptr<Ovix::OvixNamedCounters>& counters, IpHop& ipHop,
                    Departures& departures);

    /// What labels are counted in; null: where the decider says. It must outlive this.
    void labelCountersAre(Counter::OvixLfibCounterCollection* counters) noexcept {
        labelCounters_ = counters;
    }

    /// Settles a frame whose link header is Ethernet's alone where that takes least: it has one
    /// label, which is swapped, gets others on top, is popped or is in no table. False, and nothing
    /// is changed, for any other.
    [[gnu::always_inline]] bool settleInPlace(WritableFrame& frame) {
        const std::uint32_t entry = Lumo::NetU32::load(frame.bytes + Wire::Ethernet::size).value();
        const Decision& decision = *decisions_->place(entry >> 12U);
        if (!decisions_->isValid(decision) || (entry & 0xffU) <= 1) {
            return false;
        }
        if (decision.action == Action::swap) {
            return swapInPlace(decision, decision.lookup, entry, frame);
        }
        switch (decision.action) {
        case Action::impose:
            return imposeInPlace(decision, decision.lookup, entry, frame);
        case Action::choice:
            return chooseInPlace(decision, entry, frame);
        case Action::byBeneath:
            return endInPlace(decision, entry, frame);
        case Action::drop:
            return dropInPlace(decision, frame);
        default:
            return false;
        }
    }

    /// The packet starts with a label. False, and nothing is changed, when it is for the forwarder.
    bool forward(PacketWork& work);

    /// Loads what the packet's top label will need.
    [[gnu::always_inline]] void prefetch(const std::uint8_t* top) const noexcept {
        const std::uint32_t label = labelOf(Lumo::MplsLabelEntry::load(top));
        Tessel::prefetch(decisions_->place(label));
        if (labelCounters_ != nullptr) {
            labelCounters_->prefetch(label);
        }
    }

    /// Where a packet under its only label, at `top`, which is looked up next, has its IPv4
    /// destination, and the VRF's number. The address is null for others.
    struct Destination {
        const std::uint8_t* address = nullptr;
        std::uint32_t fib = 0;
    };
    Destination destinationBeneath(const std::uint8_t* top) const noexcept {
        const std::uint32_t entry = Lumo::NetU32::load(top).value();
        const Decision& decision = *decisions_->place(entry >> 12U);
        const bool isLookedUp =
            decision.looksUpIpv4 && (entry & bottom) != 0 && decisions_->isValid(decision);
        constexpr std::size_t at = Lumo::MplsLabelEntry::size + Wire::Ipv4::destinationAt;
        return {isLookedUp ? top + at : nullptr, decision.egress};
    }

    /// Makes what has been counted visible; to be called before anybody else counts or reads.
    void settle() { events_.settle(); }

    /// Whether the forwarder has done enough to pay for a decision about a label never met before,
    /// which then is paid.
    bool mayDecide() noexcept;
    /// The forwarder has processed a frame: pays for decisions.
    void earn() noexcept { credit_ += credit_ < mostCredit ? 1 : 0; }

  private:
    /// The sets of events to be counted once the frame is sure to be settled here: of its lookups,
    /// and of the labels that end here.
    struct Counted {
        void add(std::uint16_t set) noexcept { sets[count++] = set; }
        bool isFull() const noexcept { return count == sets.size(); }

        std::array<std::uint16_t, 64> sets;
        std::size_t count = 0;
    };
    /// One decision for so many frames that the forwarder processes, and some at first: frames of
    /// labels never met before cost little more than without decisions.
    static constexpr std::uint32_t costOfDecision = 8;
    static constexpr std::uint32_t mostCredit = 64 * costOfDecision;

    static constexpr std::uint32_t firstOrdinaryLabel = 16;

    static std::uint32_t labelOf(Lumo::MplsLabelEntry entry) noexcept {
        return entry.word().value() >> 12U;
    }

    const Decision* decisionFor(std::uint32_t label, const PacketWork& work);
    const Decision* decidedBeneath(const Decision& decision, std::uint32_t label,
                                   const PacketWork& work);
    bool mayReplace(const Decision& former) noexcept;
    bool lookUpAll(const Decision& top, const PacketWork& work, Counted& counted);
    bool lookUpInner(const PacketWork& work, Counted& counted);

    bool follow(Decision decision, const Counted& counted, PacketWork& work);
    Decision chosen(const Decision& decision, PacketWork& work) const;
    bool followSwap(const Decision& decision, const Counted& counted, PacketWork& work);
    bool followRewrite(const Decision& decision, const Counted& counted, PacketWork& work);
    const EgressLine* rewriteTowardFec(const DecidedRewrite& rewrite, PacketWork& work) const;
    bool followCircuit(const Decision& decision, const Counted& counted, PacketWork& work);
    bool followReplicas(const Decision& decision, const Counted& counted, PacketWork& work);
    void sendReplica(const DecidedRewrite& leg, const PacketWork& work, bool isLast);
    bool followLookup(const Decision& decision, const Counted& counted, PacketWork& work);
    bool drop(const Decision& decision, const Counted& counted, PacketWork& work);

    static constexpr std::uint32_t bottom = 0x100;

    // `lookup` is the top label's set; that of a choice's member is unset.
    [[gnu::always_inline]] bool swapInPlace(const Decision& decision, std::uint16_t lookup,
                                            std::uint32_t entry, WritableFrame& frame) {
        const EgressLine& line = (*lines_)[decision.egress];
        std::uint8_t* const bytes = frame.bytes;
        const std::uint32_t size = frame.size;
        if ((entry & bottom) == 0 ||
            !line.takesPlain(size - static_cast<std::uint32_t>(Wire::Ethernet::size)))
            [[unlikely]] {
            return false;
        }
        const std::uint32_t left = swapped(decision, entry);
        settled(lookup, entry, frame);
        departures_->sendAs(frame, frame.port, *line.port, {bytes, size});
        // Last, since bytes may be anything's.
        std::memcpy(bytes, line.macs.data(), line.macs.size());
        Lumo::NetU32(left).store(bytes + Wire::Ethernet::size);
        return true;
    }
    bool imposeInPlace(const Decision& decision, std::uint16_t lookup, std::uint32_t entry,
                       WritableFrame& frame);
    bool chooseInPlace(const Decision& decision, std::uint32_t entry, WritableFrame& frame);
    bool endInPlace(const Decision& decision, std::uint32_t entry, WritableFrame& frame);
    bool popInPlace(const Decision& decision, std::uint32_t entry, WritableFrame& frame);
    bool lookUpInPlace(const Decision& decision, std::uint32_t entry, WritableFrame& frame);
    bool dropInPlace(const Decision& decision, WritableFrame& frame);
    void sendMoved(WritableFrame& frame, std::int32_t grows, const EgressLine& line,
                   std::uint16_t etherType);
    /// Counts a frame with one label that leaves.
    [[gnu::always_inline]] void settled(std::uint16_t lookup, std::uint32_t entry,
                                        const WritableFrame& frame) {
        events_.count(lookup);
        labelCounters_->countBytes(entry >> 12U, frame.size);
    }
    /// Where a decided drop is counted, and whether a trace asks for its reason.
    struct DropLog {
        FrameAccounts::FateLog log; ///< empty until first counted
        std::uint32_t tracedBy = 0; ///< the trace that was asked last
        bool isTraced = false;
    };
    bool isLeftOut(const DecidedDrop& drop, const WritableFrame& frame) noexcept {
        DropLog& log = drops_[drop.number];
        const TracedFrames& traced = decided_->traced;
        if (log.tracedBy != traced.traces) [[unlikely]] {
            log.tracedBy = traced.traces;
            log.isTraced = traced.asksDrops &&
                           drop.reason.find(traced.filter.reason) != std::string_view::npos;
        }
        return log.isTraced && traced.filter.matches(frame.frame(), decided_->tables->ports);
    }
    /// A frame is dropped whose label no table has.
    void countUnknown(const DecidedDrop& drop, const WritableFrame& frame, PortIndex in) {
        events_.count(drop.all);
        departures_->drop(frame, in, logOf(drop));
    }
    const FrameAccounts::FateLog& logOf(const DecidedDrop& drop) {
        FrameAccounts::FateLog& log = drops_[drop.number].log;
        if (log.counter == nullptr) [[unlikely]] {
            log = departures_->logOf(drop.reason);
        }
        return log;
    }
    static std::uint32_t swapped(const Decision& decision, std::uint32_t entry) noexcept {
        constexpr std::uint32_t kept = 0xf00; // TC and S
        return decision.value | (entry & kept) | ((entry & 0xffU) - 1);
    }
    void countLabel(Lumo::MplsLabelEntry entry, const PacketWork& work) {
        labelCounters_->countBytes(labelOf(entry), work.counted());
    }
    void count(const Counted& counted, std::uint16_t last) {
        for (std::size_t i = 0; i < counted.count; ++i) {
            events_.count(counted.sets[i]);
        }
        if (last != EventSets::none) {
            events_.count(last);
        }
    }

    void decide(std::uint32_t label, Ovix::Beneath beneath);
    void decideBeneath(std::uint32_t label, Ovix::Beneath beneath);

    DecidedTables* decided_;
    DecisionTable* decisions_; ///< of them, as the lines are
    const EgressLines* lines_;
    Decider* decider_;
    EventCounts events_;
    Counter::OvixLfibCounterCollection* labelCounters_ = nullptr;
    IpHop* ipHop_;
    Departures* departures_;
    std::array<DropLog, DropReasons::most> drops_; ///< by the reason's number
    std::uint32_t credit_ = mostCredit;
    std::vector<std::uint8_t> copies_; ///< bytes of replicas that have not left yet
    std::size_t copied_ = 0;           ///< of them
};

} // namespace OvixAgent
