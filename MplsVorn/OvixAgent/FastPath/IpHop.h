#pragma once

#include <utility>

#include "FastPath/PacketWork.h"
#include "FastPath/RouteHops.h"
#include "Ip/IpPacket.h"
#include "State/ForwardingTables.h"
#include "Wire/Checksum.h"
#include "Wire/Ip.h"

namespace OvixAgent {

/// The length without padding of an IPv4 packet without options that nothing about itself keeps
/// from being forwarded; 0 of any other.
[[gnu::always_inline]] inline std::uint32_t plainIpv4Length(const std::uint8_t* packet,
                                                            std::uint32_t length) noexcept {
    using Wire::Ipv4;
    constexpr std::uint8_t withoutOptions = 0x45;
    if (length < Ipv4::size || packet[0] != withoutOptions) {
        return 0;
    }
    const std::uint32_t total = Lumo::NetU16::load(packet + Ipv4::totalLengthAt).value();
    const bool isPlain = total >= Ipv4::size && total <= length && packet[Ipv4::ttlAt] > 1 &&
                         Wire::isIntactIpv4(packet) &&
                         isGlobalIpv4(Lumo::NetU32::load(packet + Ipv4::sourceAt).value()) &&
                         isGlobalIpv4(Lumo::NetU32::load(packet + Ipv4::destinationAt).value());
    return isPlain ? total : 0;
}

/// Of an intact header whose TTL is not 0 (RFC 1624).
[[gnu::always_inline]] inline void decrementIpv4Ttl(std::uint8_t* packet) noexcept {
    using Wire::Ipv4;
    packet[Ipv4::ttlAt] -= 1;
    const std::uint16_t checksum = Lumo::NetU16::load(packet + Ipv4::checksumAt).value();
    Lumo::NetU16(Wire::decrementedChecksum(checksum)).store(packet + Ipv4::checksumAt);
}

/// Writes the hop's labels in front of an IPv4 packet.
[[gnu::always_inline]] inline void pushOnIpv4(const RouteHop& hop, std::uint8_t* packet) noexcept {
    constexpr unsigned precedenceShift = 5;
    const std::uint32_t rest = hop.withTcAndTtl(
        static_cast<std::uint8_t>(packet[Wire::Ipv4::trafficClassAt] >> precedenceShift),
        packet[Wire::Ipv4::ttlAt]);
    hop.write(packet - hop.grows(), rest);
}

/// Routes IP packets that are forwarded without further ado; every other is for the forwarder.
class IpHop {
  public:
    /// They must outlive it. `decides`: how the packets of routes leave that are not decided yet;
    /// otherwise these are for the forwarder.
    IpHop(ForwardingTables& tables, const EgressLines& lines, RouteHops& hops,
          bool decides) noexcept
        : tables_(&tables), lines_(&lines), hops_(&hops), decides_(decides) {}

    /// Routes the packet, which no rewrite has changed and whose source is to be checked as
    /// `asked`, by the VRF of that number: finds its line, decrements its TTL and pushes its
    /// route's labels. Null, and its bytes are as they were, when it is for the forwarder. The line
    /// is valid until the next call.
    const EgressLine* route(std::uint32_t fib, ReversePath asked, PacketWork& work);

    /// A packet as it leaves, where it lies.
    struct Leaving {
        const EgressLine* line = nullptr; ///< null: nothing is changed, and it is not for here
        std::uint8_t* packet = nullptr;
        std::uint32_t length = 0;
        std::uint16_t etherType = Wire::EtherType::ipv4;
    };
    /// How many packets routePlain() has routed since the last call.
    std::uint64_t takeRouted() noexcept { return std::exchange(routed_, 0); }
    /// A packet that is to be routed, and where its route's number lies.
    struct Ahead {
        const PrefixValue* place;
        const std::uint8_t* address;
        std::uint32_t fib;
    };
    /// Loads ahead what routing packets to that IPv4 address, in network byte order, will need: the
    /// number of its route, and once that is there, how the route's packets leave.
    Ahead loadPlace(std::uint32_t fib, const std::uint8_t* address) const noexcept {
        const PrefixValue* const place = hops_->fib(fib).placeOfIpv4(address);
        Tessel::prefetch(place);
        return {place, address, fib};
    }
    void loadHop(const Ahead& ahead) const noexcept {
        const std::uint32_t route = hops_->fib(ahead.fib).numberAt(ahead.place, ahead.address);
        if (route != noPrefix) {
            hops_->prefetch(ahead.fib, route);
        }
    }

    /// Routes as route() does without a reverse-path check, of IPv4 packets without options that
    /// leave without tags, with `room` bytes in front of them: most packets, in the least time.
    [[gnu::always_inline]] Leaving routePlain(std::uint32_t fib, std::uint8_t* packet,
                                              std::uint32_t length, std::uint32_t room) {
        const std::uint32_t total = plainIpv4Length(packet, length);
        if (total == 0 || hops_->fib(fib).ownHosts().mayHaveIpv4(packet + Wire::Ipv4::sourceAt))
            [[unlikely]] {
            return {};
        }
        const std::uint32_t route =
            hops_->fib(fib).numberOfIpv4(packet + Wire::Ipv4::destinationAt);
        if (route == noPrefix) {
            return {};
        }
        const RouteHop* hop = &hops_->of(fib, route);
        if (hop->kind != RouteHop::Kind::line) [[unlikely]] {
            hop = &hopOfFlow(fib, route, Ovix::PktHdrType::ipv4, {packet, total});
            if (hop->kind != RouteHop::Kind::line) {
                return {};
            }
        }
        const EgressLine& line = (*lines_)[hop->egress];
        const std::uint32_t grows = hop->grows();
        constexpr auto link = static_cast<std::uint32_t>(Wire::Ethernet::size);
        if (!line.takesFrame(total + grows + link) || room < grows + link) [[unlikely]] {
            return {};
        }
        ++routed_;
        decrementIpv4Ttl(packet);
        if (hop->labels == 0) {
            return {&line, packet, total, Wire::EtherType::ipv4};
        }
        pushOnIpv4(*hop, packet);
        return {&line, packet - grows, total + grows, Wire::EtherType::mpls};
    }

  private:
    const EgressLine* routeByVia(const IpRoute& route, std::uint8_t ttl, PacketWork& work);
    const Lumo::EthAddr* macFor(const IpRouteVia& via, const Lumo::IpGenAddr& destination) const;

    const RouteHop& hopOfFlow(std::uint32_t fib, std::uint32_t route, Ovix::PktHdrType type,
                              Wire::Bytes packet) {
        if (decides_) {
            hops_->decide(fib, route);
        }
        return hops_->ofFlow(fib, route, type, packet);
    }

    ForwardingTables* tables_;
    const EgressLines* lines_;
    RouteHops* hops_;
    bool decides_;
    std::uint64_t routed_ = 0;
    EgressLine own_; ///< of a packet that no line is kept for
};

} // namespace OvixAgent
