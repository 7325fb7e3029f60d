#pragma once

#include "FastPath/CircuitTunnels.h"
#include "FastPath/DecisionTable.h"
#include "FastPath/EgressLines.h"
#include "FastPath/EventSets.h"
#include "FastPath/Intakes.h"
#include "FastPath/RouteHops.h"
#include "Ovix/plugin/PluginManager.h"
#include "Published/PublishedTables.h"
#include "State/ForwardingTables.h"
#include "Trace/TraceFilter.h"

namespace OvixAgent {

/// Which frames are left to the forwarder since a trace asks for them.
struct TracedFrames {
    static constexpr std::uint32_t noLabel = ~std::uint32_t{0};

    TraceFilter filter;
    bool looksAtFrames = false;      ///< no decision says which ones
    bool asksDrops = false;          ///< those that would be dropped for the filter's reason
    std::uint32_t leftOut = noLabel; ///< with this label, as far as it is looked up
    std::uint32_t traces = 0;        ///< how many traces there were
};

/// Which of a thread's bursts are searched for traced frames. To look at a frame takes half as long
/// as to forward it: where bursts are large, which they are when there is no time to spare, few of
/// them are searched.
class FewBursts {
  public:
    bool hasNext(std::size_t frames) noexcept {
        if (frames < burstFrames / 4) {
            return true;
        }
        constexpr std::uint32_t oneOf = 32;
        large_ = (large_ + 1) % oneOf;
        return large_ == 0;
    }

  private:
    std::uint32_t large_ = 0; ///< since the last that was searched
};

/// What frames are forwarded by without asking the plugin. The packet thread alone changes it, and
/// only while its gate (ForwardingTables) keeps others from forwarding.
struct DecidedTables {
    /// Everything must outlive it.
    DecidedTables(ForwardingTables& all, const Mpls::PublishedTables& published,
                  const Ptr<Ovix::PluginManager>& manager)
        : tables(&all), intakes(all, manager->genericPipelineSteps()), lines(all), hops(all, lines),
          decisions(published), tunnels(manager, all, lines) {}
    DecidedTables(const DecidedTables&) = delete;
    DecidedTables& operator=(const DecidedTables&) = delete;
    ~DecidedTables() = default;

    ForwardingTables* tables;
    Intakes intakes;
    EgressLines lines;
    RouteHops hops;
    DecisionTable decisions;
    EventSets events;
    CircuitTunnels tunnels;
    TracedFrames traced;
    bool isUsable = false; ///< otherwise the forwarder processes every frame
};

} // namespace OvixAgent
