#pragma once

#include "ForwarderTesting.h"

namespace OvixAgent::Testing {

/// west and east are in the default VRF, red1 and red2 in another, which has the same prefixes.
inline const std::string routingConfig = R"(
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24]}
  - {name: east, mac: "02:00:00:00:00:02", addresses: [10.0.2.1/24, "2001:db8:2::ff/64"]}
  - {name: red1, mac: "02:00:00:00:00:03", addresses: [10.0.1.1/24], vrf: red}
  - {name: red2, mac: "02:00:00:00:00:04", addresses: [10.0.3.1/31], vrf: red}
  - {name: aside, mac: "02:00:00:00:00:05", addresses: [10.0.5.1/24], vrf: lonely}
neighbours:
  - {address: 10.0.1.2, port: west, mac: "02:00:00:00:01:02"}
  - {address: 10.0.2.2, port: east, mac: "02:00:00:00:02:02"}
  - {address: 10.0.2.3, port: east, mac: "02:00:00:00:02:03"}
  - {address: "2001:db8:2::2", port: east, mac: "02:00:00:00:02:02"}
  - {address: 10.0.1.2, port: red1, mac: "02:00:00:00:03:02"}
  - {address: 10.0.3.0, port: red2, mac: "02:00:00:00:04:02"}
  - {address: 172.16.0.9, port: red2, mac: "02:00:00:00:04:09"}
routes:
  - {prefix: 10.9.0.0/16, via: {nexthop: 10.0.2.2}}
  - {prefix: 10.9.9.0/24, drop: true}
  - {prefix: 10.8.0.0/16, via: {nexthop: 10.0.2.2, labels: [300, 301]}}
  - {prefix: 10.7.0.0/16, via: {nexthop: 10.0.2.2, labels: [300], ttl: pipe, push-ttl: 9, tc: 2}}
  - {prefix: 10.6.0.0/16, vias: [{nexthop: 10.0.2.2}, {nexthop: 10.0.2.3, weight: 3}]}
  - {prefix: 10.5.0.0/16, via: {interface: east, nexthop: 10.77.0.1}}
  - {prefix: 10.4.0.0/16, via: {interface: east}}
  - {prefix: 10.3.0.0/16, vias: [{nexthop: 10.0.2.2}, {nexthop: 10.0.1.2}]}
  - {prefix: "2001:db8:9::/48", via: {nexthop: "2001:db8:2::2"}}
  - {vrf: red, prefix: 10.9.0.0/16, via: {nexthop: 10.0.3.0}}
)";

inline Bytes packetTo(const std::string& destination, std::uint8_t ttl = 64,
                      std::uint16_t port = 1024) {
    Ipv4 fields;
    const Lumo::IpGenAddr address = Lumo::IpGenAddr::fromText(destination);
    fields.destination = Lumo::NetU32::load(address.bytes().data()).value();
    fields.ttl = ttl;
    return ipv4(fields, udp(port));
}

inline Bytes sixTo(const std::string& destination, std::uint8_t hopLimit = 64) {
    Ipv6 fields;
    fields.hopLimit = hopLimit;
    Bytes packet = ipv6(fields, udp());
    const Lumo::IpGenAddr address = Lumo::IpGenAddr::fromText(destination);
    std::copy(address.bytes().begin(), address.bytes().end(), packet.begin() + 24);
    return packet;
}

inline Bytes ipFrame(const Bytes& packet) {
    return join({eth(packet[0] >> 4U == 4 ? ethIpv4 : ethIpv6), packet});
}

class IpRouting : public ForwarderFixture {
  protected:
    enum RoutingPort : std::uint32_t { west, east, red1, red2, aside };

    IpRouting() : ForwarderFixture(routingConfig) {}

    void receiveAt(std::uint32_t port, const Bytes& frame, std::size_t snapped = 0) {
        forwarder->receive({port, {}, frame, static_cast<std::uint32_t>(frame.size() + snapped)});
    }
    void receiveIp(const Bytes& packet) { receiveAt(west, ipFrame(packet)); }

    /// The packet popped from under a label, to be routed to its destination in a VRF.
    void receivePopped(const Bytes& packet, const std::string& destination,
                       const std::string& vrf = "", Mpls::TtlMode mode = Mpls::TtlMode::pipe,
                       std::uint8_t labelTtl = 64) {
        auto to = nexthop("", destination);
        to->vrfNameIs(L3::VrfName(std::string_view(vrf)));
        to->rewriteInfos().rewriteInfoEnq(
            Tessel::make<Ovix::MplsPopRewriteInfo>(Mpls::PayloadType::automatic, mode));
        handler->decide = always(to);
        receiveAt(west, join({eth(ethMpls), stack({{100, 0, labelTtl}}), packet}));
    }

    /// One frame's port and bytes; fails unless exactly one frame was sent. Forgets it.
    std::pair<std::uint32_t, Bytes> onlyFrame() {
        std::pair<std::uint32_t, Bytes> found;
        std::size_t count = 0;
        for (std::uint32_t i = 0; i < out.size(); ++i) {
            for (const Bytes& frame : out[i].frames) {
                found = {i, frame};
                ++count;
            }
            out[i].frames.clear();
        }
        EXPECT_EQ(count, 1U);
        return found;
    }
    Bytes onlyPacket() {
        const Bytes frame = onlyFrame().second;
        return frame.size() >= 14 ? Bytes(frame.begin() + 14, frame.end()) : Bytes();
    }
    ReasonCounts punted() const { return summary().punted.counts(); }
};

} // namespace OvixAgent::Testing
