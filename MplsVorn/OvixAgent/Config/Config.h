#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include "Lumo/IpGenAddr.h"
#include "Mpls/Hardware/Status.h"
#include "Mpls/LabelRoute.h"
#include "Published/IpRoutes.h"
#include "State/MvpnIntfStatus.h"
#include "Tessel/Result.h"

namespace OvixAgent {

/// A part of a configuration, and the line that it begins on, for errors that are found later.
template <typename T>
struct Placed {
    T value;
    std::size_t line = 0;
};

/// An address of a port with the length of its subnet's prefix.
struct InterfaceAddress {
    Lumo::IpGenAddr address;
    std::uint8_t prefixLength = 0;

    Lumo::IpGenPrefix subnet() const noexcept {
        return Lumo::IpGenPrefix::of(address, prefixLength);
    }
};

/// With which 802.1Q tags a frame leaves a port.
struct Tagging {
    enum class Kind : std::uint8_t {
        keep,         ///< those that it came with
        none,         ///< untagged
        vlan,         ///< one tag with `vlan`, which stands for the word
        subInterface, ///< those of the VLAN sub-interface: `vlan`, and `innerVlan` behind it
    };

    Kind kind = Kind::keep;
    std::uint16_t vlan = 0;
    std::uint16_t innerVlan = 0; ///< 0: none

    friend bool operator==(const Tagging&, const Tagging&) = default;
};

/// An index into AgentConfig::ports.
using PortIndex = std::uint32_t;
inline constexpr PortIndex noPort = ~PortIndex{0};

enum class PortStatus : std::uint8_t { down, up };

/// Which sources of IP packets a port accepts (RFC 3704).
enum class ReversePath : std::uint8_t {
    off,    ///< any
    loose,  ///< those that some route leads to
    strict, ///< those that a route leads to by the port itself
};

/// How a live port takes and sends its frames.
enum class PortKind : std::uint8_t { packet = 1, xdp = 2, tap = 3, dpdk = 4 };

struct PortConfig {
    std::string name; ///< 1 to 15 bytes; the port's interface, or its output capture
    /// Of a VLAN sub-interface the port whose frames of the VLAN of `tagging` are its own.
    PortIndex parent = noPort;
    PortKind kind = PortKind::packet;
    std::string device;       ///< of kind dpdk, in DPDK's words
    Lumo::EthAddr mac{};      ///< zeros: the interface's own
    std::uint32_t mtu = 1500; ///< of the frame without its Ethernet header
    bool ownMtu = false;      ///< configured; a live run takes the interface's otherwise
    std::vector<InterfaceAddress> addresses;
    Tagging tagging;
    bool isUp = true;
    std::string vrf = "default";
    /// Whether IP frames that come in here are routed; otherwise they are handed on.
    bool routesIp = false;
    /// Whether labels that the neighbours here assign are those of this router's tables (RFC 5331
    /// section 7); otherwise their frames are dropped.
    bool upstreamLabels = false;
    /// Whether labelled frames that come in here are forwarded. Otherwise they are dropped: labels
    /// of a customer would lead into the provider's tables (RFC 4364 section 13).
    bool mpls = true;
    ReversePath reversePath = ReversePath::off;

    bool isSubInterface() const noexcept { return parent != noPort; }
};

struct NeighbourConfig {
    Lumo::IpGenAddr address;
    PortIndex port = 0;
    Lumo::EthAddr mac{};
};

/// A next hop and its share of the flows.
struct WeightedNextHop {
    PortIndex port = 0;
    Lumo::IpGenAddr address;
    std::uint32_t weight = 1;
};

/// A forwarding equivalence class: what the vias that name its id lead to.
struct FecConfig {
    std::uint64_t id = 0;                  ///< 1..Mpls::Via::maxFec
    std::vector<WeightedNextHop> nextHops; ///< at least one; weights add up to 1..2^32 - 1
};

struct AdjacencyConfig {
    std::uint64_t id = 0;
    Mpls::Hardware::AdjacencyVias content;
};

struct HardwareConfig {
    std::vector<Placed<AdjacencyConfig>> adjacencies;
    std::vector<Placed<Mpls::Hardware::Route>> routes; ///< each to one of the adjacencies
};

/// An Ethernet pseudowire: the frames of a port, carried whole over MPLS (RFC 4448 raw mode). The
/// frames of the other end have a route of their own in the pseudowire table.
struct PseudowireConfig {
    std::string name;
    PortIndex port = 0;      ///< the attachment circuit
    Lumo::MplsLabel label;   ///< by which the other end knows the pseudowire; 16..1048575
    bool controlWord = true; ///< recommended by RFC 8469
    PortIndex egress = 0;    ///< not the attachment circuit of a pseudowire
    Lumo::IpGenAddr nexthop;
    std::vector<Lumo::MplsLabel> tunnelLabels; ///< outermost first; at most 32
    bool entropy = false;   ///< an entropy label beneath the tunnel labels (RFC 6790)
    bool flowLabel = false; ///< a flow label at the bottom, in both directions (RFC 6391)
};

/// How often something may be done: on average, and at once. Never when either is 0.
struct TokenRate {
    std::uint32_t perSecond = 0;
    std::uint32_t burst = 0;

    friend bool operator==(const TokenRate&, const TokenRate&) = default;
};

/// Why the router answers a packet: ICMP errors and LSP echo replies.
enum class AnswerReason : std::uint8_t { timeExceeded, tooBig, unreachable, lspEcho };

/// The limits of one kind of answers.
struct AnswerRates {
    TokenRate all{500, 500};
    TokenRate perSource{50, 50}; ///< to the network of a source: a /24, in IPv6 a /56
};
/// By reason.
using AnswerLimits = std::array<AnswerRates, 4>;

/// Toggle file name -> toggle name -> state.
using ToggleConfig = std::map<std::string, std::map<std::string, bool>>;

/// A whole configuration, in which every reference leads somewhere.
struct AgentConfig {
    std::shared_ptr<const std::string> text; ///< that it was read from
    bool mplsRouting = true;
    ToggleConfig toggles;
    std::vector<PortConfig> ports;
    std::vector<NeighbourConfig> neighbours;
    std::vector<Placed<Mpls::LabelRoute>> labelRoutes; ///< by table; a label is unique in its table
    HardwareConfig hardware;
    std::vector<FecConfig> fecs; ///< ids are unique
    std::vector<Placed<PseudowireConfig>> pseudowires;
    /// The provider-multicast interfaces of the multicast VPNs; VRFs are unique.
    std::vector<Placed<Routing::Multicast::MvpnVrfIntfId>> mvpn;
    AnswerLimits answers;
    std::string cpuTap; ///< the TAP device that a live run writes punted frames to; empty: none
    unsigned int workers = 0;       ///< threads that forward beside the packet thread
    std::vector<unsigned int> cpus; ///< the processor of each worker; empty: any
    std::vector<std::string> eal;   ///< what DPDK's environment is started with
    /// The IP routes, of kind forward or drop; a prefix is unique in its VRF.
    std::vector<Placed<L3::Route>> routes;
};

/// All of a file. Refused, naming it, when it cannot be read.
Tessel::Result<std::string> readFile(const std::string& path);

/// Reads a configuration file. Refused at the first thing that is wrong, naming file, line and key,
/// and when it is to stop.
Tessel::Result<AgentConfig> loadConfig(const std::string& path, const std::stop_token& stop = {});

/// The same for text at hand; `file` names it in refusals.
Tessel::Result<AgentConfig> parseConfig(const std::string& text, const std::string& file,
                                        const std::stop_token& stop = {});

} // namespace OvixAgent

template <>
inline constexpr auto Tessel::words<OvixAgent::Tagging::Kind> =
    std::to_array<Tessel::Word<OvixAgent::Tagging::Kind>>({
        {"keep", OvixAgent::Tagging::Kind::keep},
        {"none", OvixAgent::Tagging::Kind::none},
    });

template <>
inline constexpr auto
    Tessel::words<OvixAgent::PortStatus> = std::to_array<Tessel::Word<OvixAgent::PortStatus>>({
        {"up", OvixAgent::PortStatus::up},
        {"down", OvixAgent::PortStatus::down},
    });

template <>
inline constexpr auto
    Tessel::words<OvixAgent::AnswerReason> = std::to_array<Tessel::Word<OvixAgent::AnswerReason>>({
        {"time-exceeded", OvixAgent::AnswerReason::timeExceeded},
        {"too-big", OvixAgent::AnswerReason::tooBig},
        {"unreachable", OvixAgent::AnswerReason::unreachable},
        {"lsp-echo", OvixAgent::AnswerReason::lspEcho},
    });

template <>
inline constexpr auto
    Tessel::words<OvixAgent::ReversePath> = std::to_array<Tessel::Word<OvixAgent::ReversePath>>({
        {"off", OvixAgent::ReversePath::off},
        {"loose", OvixAgent::ReversePath::loose},
        {"strict", OvixAgent::ReversePath::strict},
    });

template <>
inline constexpr auto
    Tessel::words<OvixAgent::PortKind> = std::to_array<Tessel::Word<OvixAgent::PortKind>>({
        {"packet", OvixAgent::PortKind::packet},
        {"xdp", OvixAgent::PortKind::xdp},
        {"tap", OvixAgent::PortKind::tap},
        {"dpdk", OvixAgent::PortKind::dpdk},
    });
