#pragma once

#include "State/DropListener.h"
#include "State/FecTable.h"
#include "State/Neighbours.h"
#include "State/PortTable.h"
#include "State/Pseudowires.h"
#include "State/VrfRoot.h"

namespace OvixAgent {

/// What frames are forwarded by beside the label tables, made from a configuration.
struct ForwardingTables {
    explicit ForwardingTables(const AgentConfig& config)
        : ports(config.ports), neighbours(config), fecs(config.fecs), pseudowires(config),
          vrfs(Tessel::make<VrfRoot>(config, ports, neighbours)) {}
    ForwardingTables(const ForwardingTables&) = delete;
    ForwardingTables& operator=(const ForwardingTables&) = delete;
    ~ForwardingTables() = default;

    /// Takes over all but what belongs to the ports' links, which must be the same. The counts of
    /// pseudowires restart at zero.
    void configure(const AgentConfig& config) {
        neighbours.configure(config);
        fecs = FecTable(config.fecs);
        pseudowires = Pseudowires(config);
        vrfs = Tessel::make<VrfRoot>(config, ports, neighbours);
        ports.configure(config.ports);
    }

    PortTable ports;
    Neighbours neighbours;
    FecTable fecs;
    Pseudowires pseudowires;
    Ptr<VrfRoot> vrfs;
    DropListener* drops = nullptr; ///< answers about dropped packets; may be null
};

} // namespace OvixAgent
