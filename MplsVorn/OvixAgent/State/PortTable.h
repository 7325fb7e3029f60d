#pragma once

#include <cassert>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Config/Config.h"
#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "State/Frame.h"
#include "Tessel/Changes.h"
#include "Tessel/FlatMap.h"

namespace OvixAgent {

/// Why a live port is down.
enum class PortDown : std::uint8_t {
    none,       ///< it is up
    configured, ///< by the configuration
    absent,     ///< there is no interface
    disabled,   ///< the interface is, administratively
    noCarrier,
    parent, ///< that of the sub-interface is down
};

/// A port as forwarding sees it.
struct Port {
    std::string name;
    Lumo::IntfId intfId;
    Lumo::EthAddr mac{};
    std::uint32_t mtu = 0; ///< without the Ethernet header
    Tagging tagging;
    bool isUp = true;
    L3::VrfName vrf;
    bool routesIp = false;       ///< otherwise IP frames are handed on
    bool upstreamLabels = false; ///< otherwise upstream-assigned labels are dropped
    bool mpls = true;            ///< otherwise labelled frames are dropped
    ReversePath reversePath = ReversePath::off;
    bool anyMac = true;          ///< otherwise frames for other stations are handed on
    TransmitPort* out = nullptr; ///< not owned
    Traffic sent;
    PortKind kind = PortKind::packet;
    std::vector<InterfaceAddress> addresses;
};

/// The ports by index, in the order of the configuration, and by interface id.
class PortTable {
  public:
    explicit PortTable(const std::vector<PortConfig>& configs);

    /// Takes over what does not come from a link: tagging, VRF and whether IP is routed.
    void configure(const std::vector<PortConfig>& configs);

    std::vector<Port>& ports() noexcept { return ports_; }
    const std::vector<Port>& ports() const noexcept { return ports_; }

    /// `port` must be one of these.
    PortIndex indexOf(const Port& port) const noexcept {
        assert(&port >= ports_.data() && &port < ports_.data() + ports_.size());
        return static_cast<PortIndex>(&port - ports_.data());
    }

    void macIs(PortIndex port, const Lumo::EthAddr& mac) noexcept { set(port, &Port::mac, mac); }
    void mtuIs(PortIndex port, std::uint32_t mtu) noexcept { set(port, &Port::mtu, mtu); }
    void upIs(PortIndex port, bool isUp) noexcept { set(port, &Port::isUp, isUp); }
    void anyMacIs(PortIndex port, bool any) noexcept { set(port, &Port::anyMac, any); }
    /// How often one of these has changed.
    std::uint64_t changes() const noexcept { return changes_; }

    /// Null when no port has the id.
    Port* byIntfId(Lumo::IntfId intf) noexcept {
        const std::uint32_t* index = byIntf_.find(intf.value());
        return index != nullptr ? &ports_[*index] : nullptr;
    }
    const Port* byIntfId(Lumo::IntfId intf) const noexcept {
        const std::uint32_t* index = byIntf_.find(intf.value());
        return index != nullptr ? &ports_[*index] : nullptr;
    }

    /// The port by which the frames of a sub-interface come and leave; any other port itself.
    PortIndex parentOf(PortIndex port) const noexcept { return parents_[port]; }
    /// Whether the port has VLAN sub-interfaces, or is one.
    bool hasVlans(PortIndex port) const noexcept { return hasVlans_[port]; }
    /// The port that a frame is for which came in at `port` with these VLAN ids, outermost first:
    /// the port itself, or its sub-interface that names the most of them.
    struct Taker {
        PortIndex port = 0;
        std::size_t ownTags = 0; ///< how many of the tags are the sub-interface's
    };
    /// Unset when nobody has the VLAN.
    std::optional<Taker> taker(PortIndex port, std::span<const std::uint16_t> vlans) const noexcept;

  private:
    template <typename T>
    void set(PortIndex port, T Port::*field, const T& value) noexcept {
        assert(port < ports_.size());
        changes_ += ports_[port].*field != value ? 1 : 0;
        ports_[port].*field = value;
        Tessel::Changes::notice();
    }

    std::vector<Port> ports_;
    Tessel::FlatMap<std::uint32_t> byIntf_;
    Tessel::FlatMap<PortIndex> byVlan_; ///< sub-interfaces by parent and VLAN ids
    std::vector<bool> hasVlans_;
    std::vector<PortIndex> parents_;
    std::uint64_t changes_ = 0;
};

} // namespace OvixAgent

template <>
inline constexpr auto
    Tessel::words<OvixAgent::PortDown> = std::to_array<Tessel::Word<OvixAgent::PortDown>>({
        {"down by the configuration", OvixAgent::PortDown::configured},
        {"no interface", OvixAgent::PortDown::absent},
        {"disabled", OvixAgent::PortDown::disabled},
        {"no carrier", OvixAgent::PortDown::noCarrier},
        {"its parent is down", OvixAgent::PortDown::parent},
    });
