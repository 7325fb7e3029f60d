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

struct PortConfig {
    std::string name; ///< 1 to 15 bytes; also names the port's output capture
    MacAddress mac{};
    std::uint32_t mtu = 1500; ///< of the frame without its Ethernet header
    std::vector<IpInterfaceAddress> addresses;
    Tagging tagging;
    bool isUp = true;
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
    std::uint64_t fec = 0;             ///< 0: none
    std::string vrf = "default";
};

/// 1 to 599 vias whose weights add up to 1..4294967295.
using ViaList = std::vector<ViaConfig>;

struct LfibRouteConfig {
    std::uint32_t label = 0;
    ViaType type = ViaTypes::ip;
    ViaList vias;
    std::size_t line = 0; ///< where the route stands in the file
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

struct AdjacencyConfig {
    std::uint64_t id = 0;
    bool useBackups = false;
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
};

} // namespace OvixAgent
