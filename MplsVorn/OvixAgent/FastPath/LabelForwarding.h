#pragma once

#include <array>
#include <cstdint>

#include "FastPath/Decider.h"
#include "FastPath/DecisionTable.h"
#include "FastPath/Departures.h"
#include "FastPath/EgressLines.h"
#include "FastPath/EventSets.h"
#include "FastPath/IpHop.h"
#include "FastPath/PacketWork.h"

namespace OvixAgent {

/// Forwards labelled packets by the decisions for their labels.
class LabelForwarding {
  public:
    /// Everything must outlive it.
    LabelForwarding(const Ptr<Ovix::OvixNamedCounters>& counters,
                    const Ptr<Ovix::PluginManager>& manager, ForwardingTables& tables,
                    const Mpls::PublishedTables& published, const IpHop& ipHop,
                    Departures& departures);

    /// Takes over what has changed since the last burst. False while decisions must not be used.
    bool refresh() { return decisions_.refresh() && (lines_.refresh(), true); }
    /// Changes with what makes all decisions void: restart() is then to be called.
    std::uint64_t version() const noexcept { return decider_.version(); }
    void restart();

    /// The packet starts with a label. False, and nothing is changed, when it is for the forwarder.
    bool forward(PacketWork work);

    /// Loads what the packet's top label will need.
    void prefetch(const std::uint8_t* top) const noexcept;

    /// The forwarder has processed a frame: pays for decisions.
    void earn() noexcept { credit_ += credit_ < mostCredit ? 1 : 0; }
    std::uint64_t decided() const noexcept { return decided_; }

  private:
    /// The lookups of the labels beneath the top one.
    struct InnerLookups {
        std::array<std::uint16_t, Lumo::MplsStackEntryIndex::nullValue> sets;
        std::size_t count = 0;
    };
    /// A decision costs about as much as routing so many frames; what the forwarder does for those
    /// pays for it, so that frames of labels never met before cost little more than without
    /// decisions.
    static constexpr std::uint32_t costOfDecision = 8;
    static constexpr std::uint32_t mostCredit = 64 * costOfDecision;

    const Decision* decisionFor(std::uint32_t label, const PacketWork& work);
    const Decision* decidedBeneath(const Decision& decision, std::uint32_t label,
                                   Ovix::Beneath beneath);
    bool mayDecide() noexcept;
    bool lookUpInner(const PacketWork& work, InnerLookups& inner);

    bool follow(Decision decision, const Decision& top, PacketWork& work);
    Decision chosen(const Decision& decision, const PacketWork& work) const;
    bool followSwap(Decision decision, const Decision& top, PacketWork& work);
    bool followRewrite(Decision decision, const Decision& top, PacketWork& work);
    const EgressLine* rewriteTowardFec(const DecidedRewrite& rewrite, PacketWork& work) const;
    bool followCircuit(Decision decision, const Decision& top, PacketWork& work);
    bool followLookup(Decision decision, const Decision& top, PacketWork& work);
    bool followDrop(Decision decision, const Decision& top, PacketWork& work);

    void countLookups(const Decision& top, const InnerLookups& inner);
    void countLabel(Lumo::MplsLabelEntry entry, const PacketWork& work);

    EventSets events_;
    EgressLines lines_;
    DecisionTable decisions_;
    Decider decider_;
    const IpHop* ipHop_;
    ForwardingTables* tables_;
    Departures* departures_;
    std::uint32_t credit_ = mostCredit;
    std::uint64_t decided_ = 0;
};

} // namespace OvixAgent
