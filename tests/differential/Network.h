#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Config/Config.h"
#include "Random.h"
#include "Script.h"

namespace Differential {

/// What stays the same of a port whatever the configuration.
struct PortPlan {
    std::string name;
    std::uint32_t mtu = 1500;
    OvixAgent::PortIndex parent = OvixAgent::noPort;
    std::uint16_t vlan = 0;
    std::uint16_t innerVlan = 0;
    bool isCircuit = false;
    Lumo::EthAddr mac{}; ///< at this point of the script
};

/// The made-up network around the router, and what its tables hold at this point of the script:
/// what makes frames needs both to meet routes.
struct Network {
    explicit Network(Random& random);

    std::vector<PortPlan> ports; ///< some plain ones, up to two sub-interfaces, a circuit
    std::size_t plainPorts = 0;
    std::vector<std::uint32_t> labels; ///< that routes and frames choose from
    std::vector<Lumo::IpGenPrefix> prefixes;

    /// The tables in the order in which labels are looked up, and what their routes are.
    static constexpr std::size_t lookups = 5;
    using Held = std::array<std::optional<Traffic>, lookups>;
    std::map<std::uint32_t, Held> held;

    Traffic trafficOf(std::uint32_t label) const;

    std::string address(std::size_t port, Lumo::IpFamily family, std::uint32_t host) const;
    Lumo::IpGenAddr neighbour(Random& random, std::size_t port) const;
    /// A plain port or a sub-interface.
    OvixAgent::PortIndex anyEgress(Random& random) const;
};

/// A configuration of the network's ports, with everything else at random.
std::string makeConfig(Random& random, const Network& network);

} // namespace Differential
