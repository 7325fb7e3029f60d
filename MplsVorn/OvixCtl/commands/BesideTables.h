#pragma once

#include <string>
#include <vector>

#include "commands/Command.h"
#include "whatif/Moves.h"

namespace OvixCtl {

/// What the tables do not have, and a running agent knows.
struct BesideTables {
    /// Of the agent of a request. Sub-interfaces go down with their parent: adds them to what is
    /// assumed.
    static BesideTables of(const Request& request, Assumptions& assumed);

    std::vector<L3::Route> routes;  ///< of the configuration, and the subnets of its ports
    std::vector<std::string> ports; ///< their names
    std::vector<Wires::Configured> wires;
    std::string missing; ///< why it is not known
};

} // namespace OvixCtl
