#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace OvixAgent {

/// First byte on the wire first.
using MacAddress = std::array<std::uint8_t, 6>;

/// In network byte order; an IPv4 address fills the first four bytes.
struct IpAddress {
    enum class Family : std::uint8_t { ipv4 = 4, ipv6 = 6 };

    Family family = Family::ipv4;
    std::array<std::uint8_t, 16> bytes{};

    friend bool operator==(const IpAddress&, const IpAddress&) = default;
};

/// An address of a port with the length of its subnet's prefix; host bits are kept.
struct IpInterfaceAddress {
    IpAddress address;
    std::uint8_t prefixLength = 0;
};

/// With which 802.1Q tags a frame leaves a port.
struct Tagging {
    enum class Kind : std::uint8_t {
        keep, ///< those that it came with
        none, ///< untagged
        vlan, ///< one tag with `vlan`
    };

    Kind kind = Kind::keep;
    std::uint16_t vlan = 0;
};

/// An index into AgentConfig::ports.
using PortIndex = std::uint32_t;

/// How a live port takes and sends its frames.
enum class PortKind : std::uint8_t { packet = 1, xdp = 2, tap = 3 };

struct PortConfig {
    std::string name; ///< 1 to 15 bytes; the port's interface, or its output capture
    PortKind kind = PortKind::packet;
    MacAddress mac{};         ///< zeros: the interface's own
    std::uint32_t mtu = 1500; ///< of the frame without its Ethernet header
    std::vector<IpInterfaceAddress> addresses;
    Tagging tagging;
    bool isUp = true;
    std::string vrf = "default";
    /// Whether IP frames that come in here are routed; otherwise they are handed on.
    bool routesIp = false;
};

struct NeighbourConfig {
    IpAddress address;
    PortIndex port = 0;
    MacAddress mac{};
};

enum class ViaAction : std::uint8_t { push = 1, pop = 2, swap = 3 };

/// How a label's TTL relates to what it carries (RFC 3443).
enum class TtlMode : std::uint8_t { uniform = 0, pipe = 1 };

enum class PayloadType : std::uint8_t {
    undefined = 0,
    none = 1,
    ipv4 = 2,
    ipv6 = 3,
    ethernet = 4,
    automatic = 5,
};

/// The number of a via type; those that have a name in a configuration file.
using ViaType = std::uint8_t;
namespace ViaTypes {
inline constexpr ViaType ip = 1;
inline constexpr ViaType ipLookup = 3;
inline constexpr ViaType externalFec = 10;
inline constexpr ViaType ipLookupPerPrefix = 11;
inline constexpr ViaType multicastIpLookup = 12;
} // namespace ViaTypes

/// One way to forward a labelled frame.
struct ViaConfig {
    std::optional<PortIndex> port;
    std::optional<IpAddress> nexthop;
    std::uint32_t weight = 1;
    ViaAction action = ViaAction::pop;
    std::vector<std::uint32_t> labels; ///< outermost first; empty exactly for pop
    TtlMode ttl = TtlMode::uniform;
    std::optional<std::uint8_t> tc;      ///< 0..7; unset: taken from what lies beneath
    std::optional<std::uint8_t> pushTtl; ///< 1..255
    PayloadType payload = PayloadType::automatic;
    std::optional<std::uint32_t> mtu;  ///< unset: the port's
    std::optional<std::uint16_t> vlan; ///< 1..4094; unset: as the port does
    std::uint64_t fec = 0;             ///< 0: none; the FEC need not be there
    std::string vrf = "default";
};

/// 1 to 599 vias whose weights add up to 1..4294967295.
using ViaList = std::vector<ViaConfig>;

/// Where a multicast LSP ends at this device: its packets go to the CPU on a VLAN.
struct TailConfig {
    std::uint16_t vlan = 0; ///< 1..4094
};

struct LfibRouteConfig {
    std::uint32_t label = 0;
    ViaType type = ViaTypes::ip;
    ViaList vias;                   ///< may be empty when there is a tail
    bool multicast = false;         ///< every via gets a replica
    std::optional<TailConfig> tail; ///< of a multicast route
    std::size_t line = 0;           ///< where the route stands in the file
};

enum class LfibTable : std::uint8_t {
    decap,
    evpnEthernetSegmentFilter,
    evpnEtreeLeafLabel,
    pseudowire,
    transit,
};

/// The tables' keys in a configuration file, in the order of LfibTable.
inline constexpr std::array<std::string_view, 5> lfibTableNames{
    "decap", "evpn-ethernet-segment-filter", "evpn-etree-leaf-label", "pseudowire", "transit"};

/// The routes of each table, in file order; a label stands at most once in a table.
struct LfibConfig {
    std::array<std::vector<LfibRouteConfig>, lfibTableNames.size()> tables;

    const std::vector<LfibRouteConfig>& routes(LfibTable table) const {
        return tables[static_cast<std::size_t>(table)];
    }
};

inline constexpr std::uint64_t maxFecId = (std::uint64_t{1} << 56U) - 1;

/// One next hop of a FEC.
struct FecViaConfig {
    PortIndex port = 0;
    IpAddress nexthop;
    std::uint32_t weight = 1;
};

/// A forwarding equivalence class: what the vias that name it by its id lead to.
struct FecConfig {
    std::uint64_t id = 0;           ///< 1..maxFecId
    std::vector<FecViaConfig> vias; ///< at least one; the weights add up as in a ViaList
};

struct AdjacencyConfig {
    std::uint64_t id = 0;
    bool useBackups = false;
    bool multicast = false; ///< every via gets a replica
    ViaList vias;
    ViaList backups; ///< may be empty
    std::size_t line = 0;
};

struct HardwareRouteConfig {
    std::uint32_t label = 0;
    std::uint64_t adjacency = 0; ///< the id of one of HardwareConfig::adjacencies
    bool unprogrammed = false;
    std::size_t line = 0;
};

struct HardwareConfig {
    std::vector<AdjacencyConfig> adjacencies;
    std::vector<HardwareRouteConfig> routes;
};

/// An Ethernet pseudowire: the frames of a port, carried whole over MPLS (RFC 4448 raw mode). What
/// comes back has a route of its own in the pseudowire table.
struct PseudowireConfig {
    std::string name;
    PortIndex port = 0;      ///< the attachment circuit
    std::uint32_t label = 0; ///< what the other end knows the pseudowire by; 16..1048575
    bool controlWord = true; ///< recommended by RFC 8469
    PortIndex egress = 0;    ///< an attachment circuit of no pseudowire
    IpAddress nexthop;
    std::vector<std::uint32_t> tunnelLabels; ///< outermost first
    std::size_t line = 0;                    ///< where the pseudowire stands in the file
};

/// The provider-multicast interface of a multicast VPN: that of a VLAN or a port.
struct MvpnConfig {
    std::uint32_t vrfId = 0;
    std::optional<std::uint16_t> vlan; ///< 1..4094
    std::optional<PortIndex> port;     ///< set exactly when `vlan` is not
    std::size_t line = 0;
};

/// An address prefix; the bits behind it are zero.
struct IpPrefix {
    IpAddress address;
    std::uint8_t length = 0;

    friend bool operator==(const IpPrefix&, const IpPrefix&) = default;
};

/// One way of an IP route.
struct IpRouteViaConfig {
    PortIndex port = 0;
    std::optional<IpAddress> nexthop; ///< unset: the destination is on the link itself
    std::uint32_t weight = 1;
    std::vector<std::uint32_t> labels; ///< outermost first; may be empty
    TtlMode ttl = TtlMode::uniform;
    std::optional<std::uint8_t> tc;      ///< 0..7; unset: taken from the packet's DSCP
    std::optional<std::uint8_t> pushTtl; ///< 1..255
};

struct IpRouteConfig {
    std::string vrf = "default";
    IpPrefix prefix;
    /// As a ViaList; empty: what the route matches is dropped.
    std::vector<IpRouteViaConfig> vias;
    std::size_t line = 0;
};

/// Toggle file name -> toggle name -> state.
using ToggleConfig = std::map<std::string, std::map<std::string, bool>>;

/// A whole configuration; every reference in it leads somewhere.
struct AgentConfig {
    bool mplsRouting = true;
    ToggleConfig toggles;
    std::vector<PortConfig> ports;
    std::vector<NeighbourConfig> neighbours;
    LfibConfig lfib;
    HardwareConfig hardware;
    std::vector<FecConfig> fecs; ///< each id once
    std::vector<PseudowireConfig> pseudowires;
    std::vector<MvpnConfig> mvpn; ///< each VRF once
    std::string cpuTap; ///< the TAP device that a live run hands punted frames to; empty: none
    std::vector<IpRouteConfig> routes; ///< a prefix stands at most once in a VRF
};

} // namespace OvixAgent
