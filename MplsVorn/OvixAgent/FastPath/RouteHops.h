#pragma once

#include <array>
#include <cassert>
#include <cstdint>
#include <vector>

#include "FastPath/Decision.h"
#include "FastPath/EgressLines.h"
#include "FastPath/Pool.h"
#include "Ovix/packet/FlowHash.h"
#include "State/ForwardingTables.h"
#include "Tessel/Prefetch.h"

namespace OvixAgent {

/// How the packets of an IP route leave, half a cache line.
struct RouteHop {
    enum class Kind : std::uint8_t {
        undecided,
        forwarder, ///< none of the route's packets leaves without further ado
        via,       ///< by what the route's via says: its next hop is the destination, or it pushes
                   ///< more labels than there is room for here, or the flow's
        line,      ///< `egress`: number of a line
        choice,    ///< `egress`: number of several hops
    };
    static constexpr std::size_t maxLabels = 4;

    Kind kind = Kind::undecided;
    std::uint8_t labels = 0; ///< to push
    std::uint8_t ttl = 0;    ///< of these; 0: the packet's
    std::uint8_t tc = DecidedRewrite::keep;
    std::uint32_t egress = 0;
    std::array<std::uint32_t, maxLabels> label{}; ///< their entries without TC and TTL

    std::uint32_t grows() const noexcept {
        return static_cast<std::uint32_t>(labels * Lumo::MplsLabelEntry::size);
    }
    /// What all pushed entries have beside their labels, on a packet of that class and TTL.
    std::uint32_t withTcAndTtl(std::uint8_t packetTc, std::uint8_t packetTtl) const noexcept {
        constexpr unsigned tcShift = 9;
        return std::uint32_t{tc != DecidedRewrite::keep ? tc : packetTc} << tcShift |
               (ttl != 0 ? ttl : packetTtl);
    }
    /// Writes the entries from `at` on.
    [[gnu::always_inline]] void write(std::uint8_t* at, std::uint32_t rest) const noexcept {
        for (std::size_t i = 0; i < labels; ++i) {
            Lumo::NetU32(label[i] | rest).store(at + i * Lumo::MplsLabelEntry::size);
        }
    }
};
static_assert(sizeof(RouteHop) <= 32);

/// How the packets of each IP route leave: decided when its first packet comes.
class RouteHops {
  public:
    /// They must outlive it.
    RouteHops(ForwardingTables& tables, EgressLines& lines) noexcept
        : tables_(&tables), lines_(&lines) {}

    /// Takes over which routes have changed. `decides`: at once how their packets leave.
    void refresh(bool decides);
    /// Makes all void, as when lines are given new numbers.
    void restart() noexcept;
    /// Whether some have been made void that are to be decided ahead.
    bool areAwaited() const noexcept;
    /// Decides some of these.
    void decideSome();

    /// The routes of the VRF of that number; valid until the next refresh().
    const Fib& fib(std::uint32_t vrf) const noexcept { return *ofVrf_[vrf].fib; }
    /// How a route's packets leave, by its number, as far as the route says.
    [[gnu::always_inline]] const RouteHop& of(std::uint32_t vrf,
                                              std::uint32_t route) const noexcept {
        assert(route < ofVrf_[vrf].count);
        return ofVrf_[vrf].hops[route];
    }
    /// Decides how the route's packets leave if that is not known yet.
    void decide(std::uint32_t vrf, std::uint32_t route);
    /// Of the packet's flow; valid until the next change.
    const RouteHop& ofFlow(std::uint32_t vrf, std::uint32_t route, Ovix::PktHdrType type,
                           Wire::Bytes packet) const;
    /// Loads ahead what packets of the route will need.
    void prefetch(std::uint32_t vrf, std::uint32_t route) const noexcept {
        Tessel::prefetch(&ofVrf_[vrf].hops[route]);
    }

  private:
    struct Choice {
        Shares shares;
        std::vector<RouteHop> members;
    };

    void forget(RouteHop& hop);
    void decide(RouteHop& hop, const IpRoute& route);
    RouteHop hopOf(const IpRouteVia& via);

    ForwardingTables* tables_;
    EgressLines* lines_;
    std::vector<std::uint32_t> changed_; ///< routes of a VRF, since the last refresh
    struct Vrf {
        const Fib* fib = nullptr;
        std::vector<RouteHop> hops; ///< by route
        std::size_t count = 0;      ///< of them, as the frame path asserts it
        std::size_t ahead = 0;      ///< up to here they have been decided ahead
    };
    std::vector<Vrf> ofVrf_;
    Pool<Choice> choices_;
};

} // namespace OvixAgent
