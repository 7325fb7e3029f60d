#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "FrameBytes.h"
#include "MadeUpVias.h"
#include "handlers/MplsIpLookupViaTypeHandler.h"

namespace TestSupport {

using Mpls::LfibViaType;
using Mpls::PayloadType;

inline const Bytes ip4 = udpPacket(0xc0000201);
inline const Bytes ip6 = Raw::ipv6({}, Raw::udp());
inline const Bytes ethernet = Raw::join({Raw::eth(Raw::ethIpv4), Raw::filled(40, 0)});

/// Hands frames and via sets to a handler of IP lookup vias and looks at the next hop it fills.
class IpLookupViaFixture : public MadeUpViasFixture {
  protected:
    /// The via set of a route for label 100; what finding it counted and traced is forgotten.
    Ptr<Ovix::OvixMplsViaSet> found(Table table) {
        const auto set = plugin->viaSetFromLfibStatus(contextOf(mplsFrame({{100}}, ip4)),
                                                      writers[table]->status(), key(100));
        EXPECT_TRUE(set);
        trace.clear();
        return set;
    }
    Ptr<Ovix::OvixMplsViaSet> lookupIn(std::string_view vrf, PayloadType payload,
                                       Table table = decap) {
        writers[table]->ipLookupRouteIs(key(100), LfibViaType::ipLookup, L3::VrfName(vrf), payload);
        return found(table);
    }
    Ptr<Ovix::OvixMplsViaSet> setOfIpVias(std::size_t count) {
        const std::vector<Mpls::WeightedRecord> vias(count, {swapVia(300), 1});
        writers[decap]->routeIs(key(100), LfibViaType::ipLookup, Mpls::LfibViaSetType::unicast,
                                vias);
        return found(decap);
    }

    /// Hands the frame's top label and the via set to the handler.
    Ovix::ProcessingResult process(const Bytes& frame, const Ptr<Ovix::OvixMplsViaSet>& set,
                                   std::size_t nexthopCount = 1, bool counting = true) {
        nexthopsAre(nexthopCount);
        return handler->processMplsVia(labelContext(contextOf(frame, counting), set));
    }
    /// New next hops, which lead nowhere yet.
    void nexthopsAre(std::size_t count) {
        nexthops = Tessel::make<Ovix::RoutingNexthops>();
        for (std::size_t i = 0; i < count; ++i) {
            nexthops->nexthopEnq(Tessel::make<Ovix::RoutingNexthop>(Lumo::IntfId()));
        }
    }
    /// The context of the frame's top label.
    Ptr<Ovix::MplsContext> labelContext(const Ptr<Ovix::RoutingContext>& context,
                                        const Ptr<Ovix::OvixMplsViaSet>& set) const {
        Ovix::ParsedPacket& parsed = context->packetContext()->parsedPkt();
        return Tessel::make<Ovix::MplsContext>(
            context, *Ovix::mplsHeaderData(*parsed.header(1))->begin(), parsed.header(2), set,
            nullptr, Lumo::MplsStackEntryIndex(0), nexthops);
    }
    const Ovix::RoutingNexthop& nexthop() const { return *nexthops->nexthopFront(); }
    std::size_t rewrites() const { return nexthop().rewriteInfos().rewrites().size(); }
    std::size_t counterActions() const {
        return nexthop().rewriteInfos().finalCounterActions().size();
    }
    void expectDrop(const char* reason) {
        EXPECT_EQ(everythingCounted(), (std::vector{row("Drop", reason)}));
        EXPECT_EQ(trace.back(), "Pkt 7: " + std::string(reason));
        EXPECT_TRUE(nexthop().unresolved());
        EXPECT_EQ(counterActions(), 0U);
    }

    Ptr<Ovix::MplsIpLookupViaTypeHandler> handler = Ovix::mplsIpLookupViaTypeHandlerFactory(
        LfibViaType::ipLookup, plugin->lfibTables(), plugin->lfibCounterCollection());
    Ptr<Ovix::RoutingNexthops> nexthops;
};

} // namespace TestSupport
