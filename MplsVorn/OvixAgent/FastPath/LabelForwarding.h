#pragma once

#include <array>
#include <cstdint>
#include <utility>
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
    /// are for the forwarder. `own` is null for the packet thread.
    LabelForwarding(DecidedTables& decided, Decider* decider, FrameAccounts& accounts,
                    OwnPorts* own, IpHop& ipHop);

    /// What labels are counted in; null: where the decider says. It must outlive this.
    void labelCountersAre(Counter::OvixLfibCounterCollection* counters) noexcept {
        labelCounters_ = counters;
        countersOfLabels_ = counters != nullptr ? counters->ofLabels() : nullptr;
    }
    /// The frames that leave.
    Departures& departures() noexcept { return departures_; }

    /// What frames with one label are forwarded by. It is good until a decision is made, and to be
    /// held by whoever forwards a burst: bytes of a frame may be anything's, so that what lies in
    /// memory would be read again after each frame.
    struct Lane {
        const Decision* decisions = nullptr;     ///< by label
        std::uint32_t stamp = 0;                 ///< of those that are valid
        Counter::PktCounter* counters = nullptr; ///< by label; null before the first is counted

        /// Loads what a packet's top label will need; a wrong address does no harm.
        [[gnu::always_inline]] void prefetch(const std::uint8_t* top) const noexcept {
            const std::uint32_t label = Lumo::NetU32::load(top).value() >> 12U;
            Tessel::prefetch(decisions + label);
            // By its number: there may be no counters yet, and nothing is added to a null pointer.
            const auto first = reinterpret_cast<std::uintptr_t>(counters);
            Tessel::prefetch(reinterpret_cast<const void*>(first + label * sizeof *counters));
        }
    };
    Lane lane() const noexcept {
        return {decisions_->place(0), decisions_->stamp(), countersOfLabels_};
    }

    /// Settles a frame whose link header is Ethernet's alone where that takes least: it has one
    /// label, which is swapped, gets others on top, is popped or is in no table. False, and nothing
    /// is changed, for any other.
    [[gnu::always_inline]] bool settleInPlace(const Lane& lane, WritableFrame& frame) {
        const std::uint32_t entry = Lumo::NetU32::load(frame.bytes + Wire::Ethernet::size).value();
        const Decision& decision = lane.decisions[entry >> 12U];
        if (decision.stamp != lane.stamp) {
            return false;
        }
        if (decision.action == Action::swap) [[likely]] {
            return swapInPlace(lane, decision, decision.lookup, entry, frame);
        }
        if (decision.action == Action::impose) {
            recordsUsed_ = true;
            return imposeInPlace(decision, decision.lookup, entry, frame);
        }
        return decision.action == Action::drop ? dropInPlace(decision, entry, frame)
                                               : settleOther(decision, entry, frame);
    }

    /// The packet starts with a label. False, and nothing is changed, when it is for the forwarder.
    bool forward(PacketWork& work);

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

    /// Whether packets have been forwarded in place by records since the last call.
    bool takeRecordsUsed() noexcept { return std::exchange(recordsUsed_, false); }
    /// Loads ahead the record that a packet with one label, at `top`, is forwarded by.
    void prefetchRecord(const std::uint8_t* top) const noexcept {
        const Decision& decision = *decisions_->place(Lumo::NetU32::load(top).value() >> 12U);
        if (decision.action == Action::impose) {
            Tessel::prefetch(&decisions_->rewrites.at(decision.value));
        }
    }

    /// Makes what has been counted visible; to be called before anybody else counts or reads.
    [[gnu::always_inline]] void settle() { events_.settle(); }

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
    std::uint8_t* copyOf(const PacketWork& work);
    void sendReplica(const DecidedRewrite& leg, const PacketWork& work, std::uint8_t* packet);
    bool followLookup(const Decision& decision, const Counted& counted, PacketWork& work);
    bool drop(const Decision& decision, const Counted& counted, PacketWork& work);

    static constexpr std::uint32_t bottom = 0x100;
    static constexpr std::uint32_t ttlMask = 0xff;

    // `lookup` is the top label's set, here and below; that of a choice's member is unset.
    [[gnu::always_inline]] bool swapInPlace(const Lane& lane, const Decision& decision,
                                            std::uint16_t lookup, std::uint32_t entry,
                                            WritableFrame& frame) {
        const EgressLine& line = (*lines_)[decision.egress];
        if (!isAloneAndAlive(entry) || !line.takesFrame(frame.size)) [[unlikely]] {
            return false;
        }
        const std::uint32_t swapped = swappedEntry(decision, entry);
        std::memcpy(frame.bytes, line.macs.data(), line.macs.size());
        Lumo::NetU32(swapped).store(frame.bytes + Wire::Ethernet::size);
        return leave(lane.counters + (entry >> 12U), frame, *line.port,
                     {frame.bytes, frame.size, lookup});
    }
    /// A flood of frames whose labels no table has is dropped here.
    [[gnu::always_inline]] bool dropInPlace(const Decision& decision, std::uint32_t entry,
                                            const WritableFrame& frame) {
        if ((entry & (ttlMask - 1)) == 0 || decision.isFound) {
            return false;
        }
        const DropLog& log = drops_[decision.value];
        if (log.untracedBy != decided_->traced.traces ||
            !events_.takesNext(DecidedDrop::of(decision).all) ||
            !departures_.dropNext(frame, log.log)) [[unlikely]] {
            return dropUnknown(decision, frame, frame.port);
        }
        events_.countNext();
        return true;
    }
    /// Whether it is the only label, and its TTL above 1.
    static bool isAloneAndAlive(std::uint32_t entry) noexcept {
        return (entry & (bottom | (ttlMask - 1))) > bottom;
    }
    // Each for itself, so that none saves registers for another.
    [[gnu::noinline]] bool settleOther(const Decision& decision, std::uint32_t entry,
                                       WritableFrame& frame);
    [[gnu::noinline]] bool imposeInPlace(const Decision& decision, std::uint16_t lookup,
                                         std::uint32_t entry, WritableFrame& frame);
    [[gnu::noinline]] bool chooseInPlace(const Decision& decision, std::uint32_t entry,
                                         WritableFrame& frame);
    [[gnu::noinline]] bool chooseByAll(const Decision& decision, std::uint32_t entry,
                                       WritableFrame& frame);
    bool followInPlace(const Decision& member, std::uint16_t lookup, std::uint32_t entry,
                       WritableFrame& frame);
    [[gnu::noinline]] bool endInPlace(const Decision& decision, std::uint32_t entry,
                                      WritableFrame& frame);
    bool popInPlace(const Decision& decision, std::uint32_t entry, WritableFrame& frame);
    bool lookUpInPlace(const Decision& decision, std::uint32_t entry, WritableFrame& frame);
    /// What a frame with one label leaves as, and the set of its lookup; in two registers.
    struct Sent {
        const std::uint8_t* bytes;
        std::uint32_t size;
        std::uint16_t lookup;
    };
    static Sent sentAs(Wire::Bytes bytes, std::uint16_t lookup) noexcept {
        return {bytes.data(), static_cast<std::uint32_t>(bytes.size()), lookup};
    }
    /// Counts the frame, and sends what it leaves as. What is not as with the frame before it is
    /// done elsewhere, so that nothing is saved for that.
    [[gnu::always_inline]] bool leave(Counter::PktCounter* counter, const WritableFrame& frame,
                                      Port& port, Sent sent) {
        if (counter->packets() == 0 || !events_.takesNext(sent.lookup) ||
            !departures_.takesNext(port)) [[unlikely]] {
            return leaveAnew(counter, frame, port, sent);
        }
        events_.countNext();
        counter->countBytes(frame.size);
        departures_.append(frame.time, frame.port, {sent.bytes, sent.size});
        return true;
    }
    [[gnu::noinline]] bool leaveAnew(Counter::PktCounter* counter, const WritableFrame& frame,
                                     Port& port, Sent sent);
    Counter::PktCounter* counterOf(std::uint32_t entry) const noexcept {
        return countersOfLabels_ + (entry >> 12U);
    }
    /// Where a decided drop is counted, and whether a trace asks for its reason.
    struct DropLog {
        FrameAccounts::FateLog log;          ///< empty until first counted
        std::uint32_t untracedBy = unlooked; ///< the trace that does not ask for it
        static constexpr std::uint32_t unlooked = ~std::uint32_t{0};
    };
    /// Null, and nothing is changed, when a trace asks for the frame. `reason` is the number of
    /// that for which it is dropped.
    [[gnu::always_inline]] const FrameAccounts::FateLog* logOf(std::uint32_t reason,
                                                               const WritableFrame& frame) {
        const DropLog& log = drops_[reason];
        return log.untracedBy == decided_->traced.traces ? &log.log : lookForLog(reason, frame);
    }
    [[gnu::noinline]] const FrameAccounts::FateLog* lookForLog(std::uint32_t reason,
                                                               const WritableFrame& frame);
    /// A frame is dropped whose label no table has. False as above.
    [[gnu::noinline]] bool dropUnknown(const Decision& decision, const WritableFrame& frame,
                                       PortIndex in);
    /// TC and S are kept; the TTL is above 0.
    static std::uint32_t swappedEntry(const Decision& decision, std::uint32_t entry) noexcept {
        constexpr std::uint32_t belowLabel = 0xfff;
        return decision.value | ((entry & belowLabel) - 1);
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
    Departures departures_;
    Counter::OvixLfibCounterCollection* labelCounters_ = nullptr;
    Counter::PktCounter* countersOfLabels_ = nullptr; ///< of them, by label
    IpHop* ipHop_;
    std::array<DropLog, DropReasons::most> drops_; ///< by the reason's number
    std::uint32_t credit_ = mostCredit;
    bool recordsUsed_ = false;
    std::vector<std::uint8_t> copies_; ///< bytes of replicas that have not left yet
    std::size_t copied_ = 0;           ///< of them
};

} // namespace OvixAgent
